// Rates of the memory registry through the Key interface, as the commands
// use it: 1,000,000 values in 100,000 keys (100 groups of 1,000 keys with 10
// values each, all four types) are stored, read back, enumerated, copied as
// one subtree and removed. Then a key of 100,000 values and subkeys is
// copied onto one of as many whose names interleave with them. Prints values
// per second for each phase.
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "registry/backend.h"
#include "registry/key.h"

namespace {

constexpr int kGroups = 100;
constexpr int kKeysPerGroup = 1000;
constexpr int kValuesPerKey = 10;
constexpr int64_t kValues = int64_t{kGroups} * kKeysPerGroup * kValuesPerKey;
// Values and subkeys on each side of the merge phase.
constexpr int kMergeValues = 100000;

using Clock = std::chrono::steady_clock;

std::string KeyPath(int group, int key) {
  return "bench\\group" + std::to_string(group) + "\\key" + std::to_string(key);
}

const char* const kValueNames[kValuesPerKey] = {"Int32Value", "Int64Value", "Name",    "Title",
                                                "Flags",      "Counter",    "Address", "Blob",
                                                "Comment",    "Enabled"};

bool StoreKey(regkey::Key& key, int serial) {
  bool ok = true;
  const int32_t small = serial;
  const int64_t large = int64_t{serial} << 20;
  const std::string text = "value text " + std::to_string(serial);
  unsigned char blob[32];
  std::memset(blob, serial & 0xff, sizeof blob);
  for (int v = 0; v < kValuesPerKey; ++v) {
    const char* name = kValueNames[v];
    switch (v % 4) {
      case 0:
        ok &= key.SetValue(&small, sizeof small, regkey::kTypeI32, name);
        break;
      case 1:
        ok &= key.SetValue(&large, sizeof large, regkey::kTypeI64, name);
        break;
      case 2:
        ok &= key.SetValue(text.c_str(), text.size() + 1, regkey::kTypeStr, name);
        break;
      default:
        ok &= key.SetValue(blob, sizeof blob, regkey::kTypeBin, name);
        break;
    }
  }
  return ok;
}

// Values seen by a recursive walk, reading each value as export does.
int64_t Enumerate(regkey::Key& key) {
  int64_t count = 0;
  regkey::ValueBuffer out;
  regkey::ValueType type;
  std::string name;
  key.ResetValues();
  while (key.NextValue(out, &type, name) > 0) ++count;
  key.ResetSubKeys();
  while (regkey::KeyPtr sub = key.NextSubKey(true)) count += Enumerate(*sub);
  return count;
}

void Report(const char* phase, Clock::time_point start, int64_t values, bool ok) {
  const double seconds = std::chrono::duration<double>(Clock::now() - start).count();
  std::printf("%-10s %9lld values  %8.3f s  %12.0f values/s%s\n", phase,
              static_cast<long long>(values), seconds, static_cast<double>(values) / seconds,
              ok ? "" : "  (FAILED)");
}

}  // namespace

int main() {
  std::shared_ptr<regkey::Backend> backend = regkey::MakeBackend("memory:");
  if (backend == nullptr) {
    std::fprintf(stderr, "memory backend did not initialise\n");
    return 1;
  }
  std::printf("memory registry: %lld values in %d keys\n", static_cast<long long>(kValues),
              kGroups * kKeysPerGroup);

  Clock::time_point start = Clock::now();
  bool ok = true;
  for (int g = 0; g < kGroups; ++g) {
    for (int k = 0; k < kKeysPerGroup; ++k) {
      regkey::KeyPtr key = backend->Create("", 0, false, KeyPath(g, k), true);
      ok &= StoreKey(*key, g * kKeysPerGroup + k);
    }
  }
  Report("store", start, kValues, ok);

  start = Clock::now();
  int64_t read = 0;
  for (int g = 0; g < kGroups; ++g) {
    for (int k = 0; k < kKeysPerGroup; ++k) {
      regkey::KeyPtr key = backend->Create("", 0, true, KeyPath(g, k), false);
      regkey::ValueBuffer out;
      regkey::ValueType type;
      for (const char* name : kValueNames) read += key->GetValue(out, &type, name) > 0 ? 1 : 0;
    }
  }
  Report("read", start, read, read == kValues);

  start = Clock::now();
  regkey::KeyPtr top = backend->Create("", 0, true, "bench", false);
  const int64_t enumerated = Enumerate(*top);
  Report("enumerate", start, enumerated, enumerated == kValues);
  top.reset();  // so that the removal below really frees the tree

  regkey::KeyPtr root = backend->Create("", 0, false, "", false);
  start = Clock::now();
  ok = root->CopyKey("bench", "bench copy");
  Report("copy", start, kValues, ok);

  start = Clock::now();
  ok = root->RemoveKey("bench copy") && root->RemoveKey("bench");
  Report("remove", start, 2 * kValues, ok && root->CountSubKeys() == 0);

  // A copy onto a crowded key whose names interleave with the source's:
  // every value and subkey of the source is new there.
  ok = true;
  for (int side = 0; side < 2; ++side) {
    regkey::KeyPtr key = backend->Create("", 0, false, side == 0 ? "to" : "from", true);
    for (int i = 0; i < kMergeValues; ++i) {
      const std::string name = "v" + std::to_string(1000000 + 2 * i + side);
      ok &= key->SetValue(&i, sizeof i, regkey::kTypeI32, name.c_str());
      ok &= backend->Create("", 0, false, (side == 0 ? "to\\" : "from\\") + name, true)->IsValid();
    }
  }
  start = Clock::now();
  ok &= root->CopyKey("from", "to");
  regkey::KeyPtr merged = backend->Create("", 0, true, "to", false);
  Report("merge", start, 2 * kMergeValues,
         ok && merged->CountValues() == 2 * kMergeValues &&
             merged->CountSubKeys() == 2 * kMergeValues);
  return 0;
}
