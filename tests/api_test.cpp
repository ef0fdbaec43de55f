// api_test.cpp - the table of the client API (tools/api/operations.def)
// against what the built library exports and what its header declares.
#include <cstdio>
#include <fstream>
#include <regex>
#include <set>
#include <sstream>
#include <string>

#include <gtest/gtest.h>

#include "tools/api/api.h"

namespace {

// The functions the library defines and exports, by the toolchain's nm.
std::set<std::string> exportedFunctions() {
  const std::string library = QOSDB_LIBRARY;
  const bool shared = library.find(".so") != std::string::npos;
  std::string command = std::string(QOSDB_NM) + (shared ? " -D" : " -g") + " --defined-only '" + library + "'";
  std::set<std::string> out;
  FILE* nm = popen(command.c_str(), "r");
  if (nm == nullptr) return out;
  char line[512];
  while (std::fgets(line, sizeof line, nm) != nullptr) {
    std::istringstream words(line);
    std::string value, type, name;
    // A versioned symbol reads name@@NODE: the node is the version script's.
    if (words >> value >> type >> name && (type == "T" || type == "W")) out.insert(name.substr(0, name.find('@')));
  }
  EXPECT_EQ(pclose(nm), 0) << command;
  return out;
}

std::set<std::string> declaredFunctions() {
  std::stringstream header;
  header << std::ifstream(QOSDB_CLIENT_HEADER).rdbuf();
  const std::string h = header.str();
  std::set<std::string> out;
  std::regex api(R"(QOS_API\s+[\w\s\*]+?\b(qos_\w+)\s*\()");
  for (std::sregex_iterator it(h.begin(), h.end(), api), end; it != end; ++it) out.insert((*it)[1]);
  return out;
}

TEST(Api, TheTableListsEveryExportedFunctionOnceAndNothingElse) {
  std::set<std::string> listed;
  for (const auto& o : qosapi::kOperations) EXPECT_TRUE(listed.insert(o.name).second) << o.name << " listed twice";
  const std::pair<const char*, std::set<std::string>> others[] = {
      {"exported by the library", exportedFunctions()},
      {"declared in the header", declaredFunctions()},
  };
  for (const auto& [where, names] : others) {
    EXPECT_GT(names.size(), 180u) << where;
    for (const auto& n : names) EXPECT_TRUE(listed.count(n)) << n << " is " << where << " but not in operations.def";
    for (const auto& n : listed) EXPECT_TRUE(names.count(n)) << n << " is in operations.def but not " << where;
  }
}

}  // namespace
