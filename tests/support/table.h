#pragma once
// Golden tables: `tests/data/tables/<name>.tsv` holds one case a line, its fields separated by tabs
// and escaped as in the scenarios (\r \n \t \0 \\ \xHH), the last field the expected result; lines
// beginning with "#" are comments. QUELLOR_BLESS=1 rewrites the expected fields.

#include <functional>
#include <map>
#include <string>
#include <vector>

namespace quellor::testing {

// Runs `f` on the fields of every case but the last and compares its result (or "!" and what it
// threw: a run-time error's number and text, or another exception's text) with the last field;
// every difference fails, named by file and line.
void CheckTable(const std::string& name,
                const std::function<std::string(const std::vector<std::string>&)>& f);

// A table whose first field names which of `functions` a case calls, with the fields after it.
using TableFunction = std::function<std::string(const std::vector<std::string>&)>;
void CheckFunctions(const std::string& name, const std::map<std::string, TableFunction>& functions);

// The number of the run-time error `f` raises, 0 when it raises none.
int ErrorOf(const std::function<void()>& f);

}  // namespace quellor::testing
