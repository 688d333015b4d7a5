// Baselines for bench/transfer_bench.sh, straight on libpq:
//
//   transfer_baseline load CONNINFO ROOT FILE CONNECTIONS [batched]
//     parses FILE with the registry CSV reader, then makes the same
//     registry.add_value calls as the import command, one per row, from
//     CONNECTIONS threads that each take a contiguous share of the rows in
//     file order; with "batched" the rows are sorted by key and the threads
//     claim batches of 512 through one atomic index, as the import does.
//   transfer_baseline walk CONNINFO PATH [per-level]
//     depth first: registry.get_values and registry.get_subkeys for every
//     key below PATH, as an export makes them; on one connection, or with
//     "per-level" on one connection per tree level, as the export's keys
//     hold them.
//
// Prints "rows=N seconds=S" for the timed phase on stdout.
#include <postgresql/libpq-fe.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iostream>
#include <string>
#include <thread>
#include <vector>

#include "frontend/value_parse.h"
#include "support/encoders.h"
#include "transfer/csv.h"

namespace {

struct WireRow {
  std::string path;
  std::string name;
  std::string code;
  std::string text;
};

double Seconds(std::chrono::steady_clock::time_point since) {
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - since).count();
}

PGconn* Connect(const char* conninfo) {
  PGconn* connection = PQconnectdb(conninfo);
  if (PQstatus(connection) != CONNECTION_OK) {
    std::cerr << "connect: " << PQerrorMessage(connection);
    std::exit(1);
  }
  return connection;
}

bool ReadRows(const char* file, std::vector<ImportRow>& rows) {
  std::ifstream in(file, std::ios::binary);
  CsvRowReader reader("", false, [](bool) -> std::ostream& { return std::cerr; }, rows);
  CsvTokenizer tokenizer(reader);
  std::vector<char> buffer(kCsvChunkSize);
  while (in) {
    in.read(buffer.data(), buffer.size());
    if (!tokenizer.Feed(buffer.data(), in.gcount())) return false;
  }
  return true;
}

WireRow ToWire(const std::string& root, const ImportRow& row) {
  WireRow wire{row.key.empty() ? root : root + "\\" + row.key, row.value_name, "", ""};
  char number[32];
  if (row.type == kSetI32) {
    int32_t value;
    std::memcpy(&value, row.data.get(), 4);
    std::snprintf(number, sizeof(number), "%i", value);
    wire.code = "3";
    wire.text = number;
  } else if (row.type == kSetI64) {
    int64_t value;
    std::memcpy(&value, row.data.get(), 8);
    std::snprintf(number, sizeof(number), "%" PRId64, value);
    wire.code = "4";
    wire.text = number;
  } else if (row.type == kSetStr) {
    wire.code = "1";
    wire.text = row.data.get();
  } else {
    size_t size = 0;
    Base64Encode(row.data.get(), row.size, nullptr, size);
    wire.text.resize(size);
    Base64Encode(row.data.get(), row.size, wire.text.data(), size);
    wire.code = "2";
  }
  return wire;
}

void AddValue(PGconn* connection, const WireRow& row) {
  const char* params[4] = {row.path.c_str(), row.name.c_str(), row.code.c_str(),
                           row.text.c_str()};
  PGresult* result = PQexecPrepared(connection, "add", 4, params, nullptr, nullptr, 0);
  if (PQresultStatus(result) != PGRES_TUPLES_OK) {
    std::cerr << "add_value: " << PQerrorMessage(connection);
    std::exit(1);
  }
  PQclear(result);
}

PGconn* LoadConnection(const char* conninfo) {
  PGconn* connection = Connect(conninfo);
  PQclear(PQprepare(connection, "add", "SELECT registry.add_value($1,$2,$3,$4);", 4, nullptr));
  return connection;
}

void LoadShare(const char* conninfo, const std::vector<WireRow>& rows, size_t first, size_t last) {
  PGconn* connection = LoadConnection(conninfo);
  for (size_t i = first; i < last; ++i) AddValue(connection, rows[i]);
  PQfinish(connection);
}

void LoadBatches(const char* conninfo, const std::vector<WireRow>& rows,
                 std::atomic<size_t>& next_row) {
  PGconn* connection = LoadConnection(conninfo);
  while (true) {
    const size_t first = next_row.fetch_add(512);
    if (first >= rows.size()) break;
    const size_t last = std::min(rows.size(), first + 512);
    for (size_t i = first; i < last; ++i) AddValue(connection, rows[i]);
  }
  PQfinish(connection);
}

int Load(const char* conninfo, const std::string& root, const char* file, int connections,
         bool batched) {
  auto start = std::chrono::steady_clock::now();
  std::vector<ImportRow> rows;
  if (!ReadRows(file, rows)) return 1;
  std::vector<WireRow> wire;
  wire.reserve(rows.size());
  for (const ImportRow& row : rows) wire.push_back(ToWire(root, row));
  std::vector<std::thread> threads;
  std::atomic<size_t> next_row{0};
  if (batched) {
    std::sort(wire.begin(), wire.end(),
              [](const WireRow& a, const WireRow& b) { return a.path < b.path; });
  }
  const size_t share = (wire.size() + connections - 1) / connections;
  for (int t = 0; t < connections; ++t) {
    if (batched) {
      threads.emplace_back(LoadBatches, conninfo, std::cref(wire), std::ref(next_row));
      continue;
    }
    size_t first = std::min(wire.size(), t * share);
    size_t last = std::min(wire.size(), first + share);
    threads.emplace_back(LoadShare, conninfo, std::cref(wire), first, last);
  }
  for (std::thread& thread : threads) thread.join();
  std::cout << "rows=" << wire.size() << " seconds=" << Seconds(start) << "\n";
  return 0;
}

PGconn* WalkConnection(const char* conninfo) {
  PGconn* connection = Connect(conninfo);
  PQclear(PQprepare(connection, "values", "SELECT * FROM registry.get_values($1);", 1, nullptr));
  PQclear(PQprepare(connection, "subkeys", "SELECT registry.get_subkeys($1);", 1, nullptr));
  return connection;
}

struct Walker {
  const char* conninfo;
  bool per_level;
  std::vector<PGconn*> connections;
  size_t bytes = 0;

  PGconn* At(size_t depth) {
    if (!per_level) depth = 0;
    while (connections.size() <= depth) connections.push_back(WalkConnection(conninfo));
    return connections[depth];
  }
  // Rows seen below `path`.
  size_t Walk(const std::string& path, size_t depth) {
    PGconn* connection = At(depth);
    const char* params[1] = {path.c_str()};
    PGresult* values = PQexecPrepared(connection, "values", 1, params, nullptr, nullptr, 0);
    size_t rows = PQntuples(values);
    for (size_t i = 0; i < rows; ++i) bytes += std::strlen(PQgetvalue(values, i, 2));
    PQclear(values);
    PGresult* subkeys = PQexecPrepared(connection, "subkeys", 1, params, nullptr, nullptr, 0);
    std::vector<std::string> children;
    for (int i = 0; i < PQntuples(subkeys); ++i) children.emplace_back(PQgetvalue(subkeys, i, 0));
    PQclear(subkeys);
    for (const std::string& child : children) rows += Walk(child, depth + 1);
    return rows;
  }
};

int WalkTree(const char* conninfo, const std::string& path, bool per_level) {
  auto start = std::chrono::steady_clock::now();
  Walker walker{conninfo, per_level, {}};
  size_t rows = walker.Walk(path, 0);
  for (PGconn* connection : walker.connections) PQfinish(connection);
  std::cout << "rows=" << rows << " bytes=" << walker.bytes << " connections="
            << walker.connections.size() << " seconds=" << Seconds(start) << "\n";
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  if ((argc == 6 || argc == 7) && std::string(argv[1]) == "load") {
    return Load(argv[2], argv[3], argv[4], std::atoi(argv[5]),
                argc == 7 && std::string(argv[6]) == "batched");
  }
  if ((argc == 4 || argc == 5) && std::string(argv[1]) == "walk") {
    return WalkTree(argv[2], argv[3], argc == 5 && std::string(argv[4]) == "per-level");
  }
  std::cerr << "usage: transfer_baseline load CONNINFO ROOT FILE CONNECTIONS [batched]\n"
               "       transfer_baseline walk CONNINFO PATH [per-level]\n";
  return 2;
}
