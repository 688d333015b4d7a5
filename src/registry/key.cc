#include "registry/key.h"

#include <stdexcept>

namespace regkey {

// SharedStub itself is defined in backend.cc, after the other module state,
// so that it is constructed last and torn down first.

void KeyDeleter::operator()(Key* key) const {
  if (key != &SharedStub) delete key;
}

KeyPtr StubKeyPtr() { return KeyPtr(&SharedStub); }

KeyPtr KeyStub::Clone() { return KeyPtr(new KeyStub()); }

void ThrowNullText() {
  throw std::logic_error("basic_string: construction from null is not valid");
}

}  // namespace regkey
