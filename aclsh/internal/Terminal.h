// aclsh on a terminal (Terminal.cpp), for the program's main.
#pragma once

namespace aclsh {

class Shell;

// Reads lines from the terminal until the shell has ended (exit, quit, Ctrl-D at the top);
// the exit status: 0 when whatever was left open ended well.
int interactive(Shell& shell, bool json, const char* program);

}  // namespace aclsh
