// The abstract registry backend, the factory of keys, and the module state
// of the registry layer: the one backend of the process and its
// specification text.
//
// Thread safety: Create may be called from several threads at once on the
// one registry_backend. registry_backend and backend_specification are
// written only before worker threads start.
#ifndef HIVECTL_REGISTRY_BACKEND_H_
#define HIVECTL_REGISTRY_BACKEND_H_

#include <memory>
#include <string>
#include <string_view>

#include "registry/key.h"

namespace regkey {

class Backend {
 public:
  virtual ~Backend() = default;

  // The key at root + "\" + path. `create` lets a writable key come into
  // being by this use. Never returns null: a refused path gives an unusable
  // key whose operations answer as KeyStub does. `reserved` is ignored.
  virtual KeyPtr Create(std::string_view root, int reserved, bool read_only,
                        std::string_view path, bool create) = 0;
  // Debugging dump of the whole content (memory: to stderr).
  virtual void Dump() = 0;
  // Prepares the backend from the whole specification, prefix included.
  virtual bool Init(std::string_view spec) = 0;
};

// Selects a backend by the prefix "postgresql:" or "memory:", builds and
// initialises it. Null on an unknown prefix or a failed Init; prints nothing.
std::shared_ptr<Backend> MakeBackend(std::string_view spec);

// MakeBackend; on success the result becomes registry_backend and `spec` is
// copied into backend_specification. On failure both keep their content.
bool InitBackend(std::string_view spec);

// Dump() of registry_backend. REQUIRES: InitBackend succeeded.
void DumpBackend();

// Removes every direct subkey of `key`, collecting all names before the
// first removal.
void RemoveSubKeys(KeyPtr key);

extern std::string backend_specification;
extern std::shared_ptr<Backend> registry_backend;

}  // namespace regkey

#endif  // HIVECTL_REGISTRY_BACKEND_H_
