// The module `aclkit`. Each group of names is one bind function (internal/Bindings.h); a new
// group, such as a few free functions of another layer, is one more file and one line here.
#include "aclkit/python/internal/Bindings.h"

PYBIND11_MODULE(aclkit, m) {
  m.attr("__version__") = ACLKIT_VERSION;
  m.doc() =
      "ACL editing sessions, reference dataplanes and packet checks for command handlers, and every reflected "
      "attribute and operation of the library by name.";
  Python::bindErrors(m);
  Python::bindValues(m);
  Python::bindReflection(m);
  Python::bindRecords(m);
  Python::bindSessions(m);
  Python::bindAgents(m);
  Python::bindChanges(m);
  Python::bindInterchange(m);
}
