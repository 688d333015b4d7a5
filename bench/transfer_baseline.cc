// Baselines for bench/transfer_bench.sh, straight on libpq:
//
//   transfer_baseline load CONNINFO ROOT FILE CONNECTIONS
//     parses FILE with the registry CSV reader, then makes the same
//     registry.add_value calls as the import command, one per row, from
//     CONNECTIONS threads that each take a contiguous share of the rows in
//     file order.
//   transfer_baseline walk CONNINFO PATH
//     one connection, depth first: registry.get_values and
//     registry.get_subkeys for every key below PATH, as an export makes them.
//
// Prints "rows=N seconds=S" for the timed phase on stdout.
#include <postgresql/libpq-fe.h>

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

void LoadShare(const char* conninfo, const std::vector<WireRow>& rows, size_t first, size_t last) {
  PGconn* connection = Connect(conninfo);
  PGresult* prepared =
      PQprepare(connection, "add", "SELECT registry.add_value($1,$2,$3,$4);", 4, nullptr);
  PQclear(prepared);
  for (size_t i = first; i < last; ++i) {
    const char* params[4] = {rows[i].path.c_str(), rows[i].name.c_str(), rows[i].code.c_str(),
                             rows[i].text.c_str()};
    PGresult* result = PQexecPrepared(connection, "add", 4, params, nullptr, nullptr, 0);
    if (PQresultStatus(result) != PGRES_TUPLES_OK) {
      std::cerr << "add_value: " << PQerrorMessage(connection);
      std::exit(1);
    }
    PQclear(result);
  }
  PQfinish(connection);
}

int Load(const char* conninfo, const std::string& root, const char* file, int connections) {
  auto start = std::chrono::steady_clock::now();
  std::vector<ImportRow> rows;
  if (!ReadRows(file, rows)) return 1;
  std::vector<WireRow> wire;
  wire.reserve(rows.size());
  for (const ImportRow& row : rows) wire.push_back(ToWire(root, row));
  std::vector<std::thread> threads;
  const size_t share = (wire.size() + connections - 1) / connections;
  for (int t = 0; t < connections; ++t) {
    size_t first = std::min(wire.size(), t * share);
    size_t last = std::min(wire.size(), first + share);
    threads.emplace_back(LoadShare, conninfo, std::cref(wire), first, last);
  }
  for (std::thread& thread : threads) thread.join();
  std::cout << "rows=" << wire.size() << " seconds=" << Seconds(start) << "\n";
  return 0;
}

// Rows seen below `path`; `bytes` adds up the value texts read.
size_t Walk(PGconn* connection, const std::string& path, size_t& bytes) {
  const char* params[1] = {path.c_str()};
  PGresult* values = PQexecPrepared(connection, "values", 1, params, nullptr, nullptr, 0);
  size_t rows = PQntuples(values);
  for (size_t i = 0; i < rows; ++i) bytes += std::strlen(PQgetvalue(values, i, 2));
  PQclear(values);
  PGresult* subkeys = PQexecPrepared(connection, "subkeys", 1, params, nullptr, nullptr, 0);
  std::vector<std::string> children;
  for (int i = 0; i < PQntuples(subkeys); ++i) children.emplace_back(PQgetvalue(subkeys, i, 0));
  PQclear(subkeys);
  for (const std::string& child : children) rows += Walk(connection, child, bytes);
  return rows;
}

int WalkTree(const char* conninfo, const std::string& path) {
  auto start = std::chrono::steady_clock::now();
  PGconn* connection = Connect(conninfo);
  PQclear(PQprepare(connection, "values", "SELECT * FROM registry.get_values($1);", 1, nullptr));
  PQclear(PQprepare(connection, "subkeys", "SELECT registry.get_subkeys($1);", 1, nullptr));
  size_t bytes = 0;
  size_t rows = Walk(connection, path, bytes);
  PQfinish(connection);
  std::cout << "rows=" << rows << " bytes=" << bytes << " seconds=" << Seconds(start) << "\n";
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc == 6 && std::string(argv[1]) == "load") {
    return Load(argv[2], argv[3], argv[4], std::atoi(argv[5]));
  }
  if (argc == 4 && std::string(argv[1]) == "walk") return WalkTree(argv[2], argv[3]);
  std::cerr << "usage: transfer_baseline load CONNINFO ROOT FILE CONNECTIONS\n"
               "       transfer_baseline walk CONNINFO PATH\n";
  return 2;
}
