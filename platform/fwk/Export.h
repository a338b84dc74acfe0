// ACLKIT_EXPORT marks what leaves the shared library.
//
// The library is built with hidden symbol visibility: only the classes and functions its
// headers mark ACLKIT_EXPORT are visible to programs that link it, so its internals can
// change without breaking them and the dynamic symbol table stays the size of the interface.
//
//   class ACLKIT_EXPORT Entity { ... };       // members, vtable and type information
//   ACLKIT_EXPORT double now();               // one function
//
// A template is marked only when every binary must share one instance of its static data.
#pragma once

#define ACLKIT_EXPORT __attribute__((visibility("default")))
// Machinery every binary instantiates for itself and never shares across the library boundary
// (typed adapters behind a common interface), kept out of the exported symbols even when its
// template arguments are exported types.
#define ACLKIT_HIDDEN __attribute__((visibility("hidden")))

// The reference-count model is part of the ABI. Counted types live in an inline namespace
// named after the model, so a program compiled for one model and linked against a library
// built for the other fails to link instead of racing at run time.
#if FWK_THREAD_SAFE_PTR
#define FWK_REFCOUNT_ABI_BEGIN inline namespace atomicRefs {
#else
#define FWK_REFCOUNT_ABI_BEGIN inline namespace plainRefs {
#endif
#define FWK_REFCOUNT_ABI_END }
