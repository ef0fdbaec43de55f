// SPDX-License-Identifier: MIT
// api_test.cpp - the table of the client API (tools/api/operations.def)
// against what the built library exports and what its header declares.
#include <cstdio>
#include <fstream>
#include <map>
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

// Each folder of the core calls only into folders below it; frame/entry.cpp
// (init, attach, reset) alone calls up. A new folder needs its rank here.
TEST(Api, CoreFoldersCallOnlyDownwards) {
  const std::map<std::string, int> rank = {{"frame", 0},       {"serviceflows", 1}, {"messages", 1}, {"check", 1},
                                           {"transactions", 2}, {"classifiers", 2}, {"active", 2},   {"sidclusters", 2},
                                           {"phs", 3},          {"dbc", 3},         {"mgmt", 4},     {"outcome", 4}};
  auto folder = [](std::string o) {
    o.erase(o.rfind('/'));
    return o.substr(o.rfind('/') + 1);
  };
  std::map<std::string, std::string> definer;             // symbol -> folder
  std::map<std::string, std::set<std::string>> undefined;  // object -> symbols it uses
  std::istringstream objects(QOSDB_CORE_OBJECTS);
  for (std::string o; objects >> o;) {
    FILE* nm = popen((std::string(QOSDB_NM) + " '" + o + "'").c_str(), "r");
    ASSERT_NE(nm, nullptr);
    char line[1024];
    for (std::string a, b, c; std::fgets(line, sizeof line, nm) != nullptr;) {
      std::istringstream words(line);
      if (words >> a >> b && words >> c) definer[c] = folder(o);
      else if (a == "U") undefined[o].insert(b);
    }
    EXPECT_EQ(pclose(nm), 0) << o;
  }
  EXPECT_GT(undefined.size(), 20u);
  for (const auto& [o, symbols] : undefined) {
    if (o.find("/frame/entry.") != std::string::npos) continue;
    for (const auto& s : symbols) {
      auto d = definer.find(s);
      if (d != definer.end() && d->second != folder(o)) {
        EXPECT_LT(rank.at(d->second), rank.at(folder(o))) << o << " calls " << s;
      }
    }
  }
}

}  // namespace
