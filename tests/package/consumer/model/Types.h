// This program's own header with a name the library also uses for one of its own: the
// library's headers must never pick this one up.
#pragma once

namespace inventory {
struct Types {
  int count = 0;
};
}  // namespace inventory
