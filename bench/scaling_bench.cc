// Growth of two paths with large inputs, on the memory backend, each run
// being the real tool started with execv:
// - one command line of N set commands, N = 1,000 to 32,000, once with
//   plain numbers and once with negative ones (which the option parser sees
//   as unknown short options);
// - an import of N values into one key, rows in shuffled order, N = 10,000
//   to 1,000,000.
// Prints wall and CPU seconds (best of a few runs) and the growth of the
// CPU time per doubling of N: about 2 for a linear path, about 4 for a
// quadratic one.
//
//   scaling_bench [PATH_OF_qv_hivectl]    (default: beside this program)
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <numeric>
#include <random>
#include <string>
#include <vector>

namespace {

struct Measurement {
  double wall = 0;  // seconds
  double cpu = 0;   // user + system seconds
  long peak_kb = 0;
};

double Seconds(const timeval& time) { return time.tv_sec + time.tv_usec / 1e6; }

// Runs the tool once with its standard output discarded; exits on failure.
Measurement RunOnce(const std::vector<std::string>& args) {
  std::vector<char*> argv;
  for (const std::string& arg : args) argv.push_back(const_cast<char*>(arg.c_str()));
  argv.push_back(nullptr);
  const auto start = std::chrono::steady_clock::now();
  const pid_t pid = fork();
  if (pid == 0) {
    const int null = open("/dev/null", O_WRONLY);
    dup2(null, STDOUT_FILENO);
    execv(argv[0], argv.data());
    std::perror("execv");
    _exit(127);
  }
  int status = 0;
  rusage usage{};
  wait4(pid, &status, 0, &usage);
  Measurement result;
  result.wall = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  result.cpu = Seconds(usage.ru_utime) + Seconds(usage.ru_stime);
  result.peak_kb = usage.ru_maxrss;
  if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) {
    std::fprintf(stderr, "run failed with status %d (%zu arguments)\n", status, args.size());
    std::exit(1);
  }
  return result;
}

Measurement RunBest(const std::vector<std::string>& args, int runs) {
  Measurement best = RunOnce(args);
  for (int i = 1; i < runs; ++i) {
    Measurement next = RunOnce(args);
    if (next.cpu < best.cpu) best = next;
  }
  return best;
}

// Prints one line of a series; `previous` is the line before, if any.
void Report(const char* unit, uint64_t n, const Measurement& m, uint64_t previous_n,
            const Measurement* previous) {
  std::printf("  %8llu %-7s wall %7.3f s  cpu %7.3f s  peak %7.1f MB", (unsigned long long)n,
              unit, m.wall, m.cpu, m.peak_kb / 1024.0);
  if (previous != nullptr && previous->cpu > 0) {
    const double doublings = std::log2(double(n) / double(previous_n));
    std::printf("  growth per doubling %.2fx", std::pow(m.cpu / previous->cpu, 1 / doublings));
  }
  std::printf("\n");
}

void CommandLineSeries(const std::string& tool, const std::string& number) {
  std::printf("one command line of N 'set k v i32 %s':\n", number.c_str());
  Measurement previous;
  uint64_t previous_n = 0;
  for (uint64_t n = 1000; n <= 32000; n *= 2) {
    std::vector<std::string> args = {tool, "--Backend", "memory:"};
    for (uint64_t i = 0; i < n; ++i) args.insert(args.end(), {"set", "k", "v", "i32", number});
    const Measurement m = RunBest(args, 3);
    Report("sets", n, m, previous_n, previous_n != 0 ? &previous : nullptr);
    previous = m;
    previous_n = n;
  }
}

// A CSV of n i32 values in key "key", named Value0 to Value<n-1> in
// shuffled order.
void WriteOneKeyCsv(const std::string& path, uint64_t n) {
  std::vector<uint64_t> names(n);
  std::iota(names.begin(), names.end(), uint64_t{0});
  std::shuffle(names.begin(), names.end(), std::mt19937_64(n));
  std::ofstream csv(path, std::ios::binary);
  csv << "KNAME,VNAME,TYPE,VALUE\n";
  for (uint64_t name : names) csv << "key,Value" << name << ",i32," << name % 100000 << "\n";
}

void ImportSeries(const std::string& tool, const std::string& dir) {
  std::printf("import of N values into one key, shuffled:\n");
  Measurement previous;
  uint64_t previous_n = 0;
  for (uint64_t n : {10000, 20000, 50000, 100000, 200000, 500000, 1000000}) {
    const std::string csv = dir + "/one_key.csv";
    WriteOneKeyCsv(csv, n);
    const Measurement m =
        RunBest({tool, "--Backend", "memory:", "import", "K", csv}, n <= 200000 ? 3 : 1);
    Report("values", n, m, previous_n, previous_n != 0 ? &previous : nullptr);
    previous = m;
    previous_n = n;
    std::remove(csv.c_str());
  }
}

std::string DefaultTool() {
  std::string self(4096, '\0');
  const ssize_t size = readlink("/proc/self/exe", self.data(), self.size());
  self.resize(size > 0 ? size_t(size) : 0);
  return self.substr(0, self.rfind('/') + 1) + "qv_hivectl";
}

}  // namespace

int main(int argc, char** argv) {
  const std::string tool = argc > 1 ? argv[1] : DefaultTool();
  char pattern[] = "/tmp/scaling-bench-XXXXXX";
  if (mkdtemp(pattern) == nullptr) {
    std::perror("mkdtemp");
    return 1;
  }
  std::printf("tool: %s (memory backend; targets: 32k sets < 1 s, 100k values < 1 s, "
              "1M values < 10 s)\n", tool.c_str());
  CommandLineSeries(tool, "7");
  CommandLineSeries(tool, "-7");
  ImportSeries(tool, pattern);
  rmdir(pattern);
  return 0;
}
