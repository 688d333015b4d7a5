#include "registry/backend.h"

#include <utility>
#include <vector>

#include "registry/db_backend.h"
#include "registry/memory_backend.h"

namespace regkey {

// Module state, constructed in this order and destroyed in reverse.
std::string backend_specification;
std::shared_ptr<Backend> registry_backend;
KeyStub SharedStub;

namespace {

bool StartsWith(std::string_view text, std::string_view prefix) {
  return text.size() >= prefix.size() && text.compare(0, prefix.size(), prefix) == 0;
}

// The backend that `spec` names, not yet initialised; null for an unknown name.
std::shared_ptr<Backend> ConstructBackend(std::string_view spec) {
  if (StartsWith(spec, "postgresql:")) return std::make_shared<DBBackend>();
  if (StartsWith(spec, "memory:")) return std::make_shared<MemoryBackend>();
  return nullptr;
}

}  // namespace

std::shared_ptr<Backend> MakeBackend(std::string_view spec) {
  std::shared_ptr<Backend> backend = ConstructBackend(spec);
  if (backend == nullptr || !backend->Init(spec)) return nullptr;
  return backend;
}

bool InitBackend(std::string_view spec) {
  std::shared_ptr<Backend> backend = MakeBackend(spec);
  if (backend == nullptr) return false;
  registry_backend = std::move(backend);
  backend_specification.assign(spec.data(), spec.size());
  return true;
}

void DumpBackend() { registry_backend->Dump(); }

void RemoveSubKeys(KeyPtr key) {
  std::vector<std::string> names;
  std::string name;
  key->ResetSubKeys();
  while (key->NextSubKeyName(name)) names.push_back(name);
  for (const std::string& each : names) key->RemoveKey(each);
}

}  // namespace regkey
