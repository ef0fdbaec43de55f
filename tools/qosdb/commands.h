// SPDX-License-Identifier: MIT
// commands.h - the qosdb commands; each returns the process's exit status
// or throws a Failure.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace qosdb {

// `from`: a snapshot file to read instead of the live store (empty: the live one).
int showCommand(const std::vector<std::string>& tables, bool json, bool useLock, const std::string& from);
int initCommand(bool force, bool despiteAttached);
int resetCommand();
int destroyCommand(bool despiteAttached);
int checkCommand(bool useLock, const std::string& from);
int lockStatusCommand();
int unlockCommand(bool force, bool holderGone);
int watchCommand(double pollSeconds);
int eventsCommand(int count, double timeoutSeconds);
int walkCommand(const std::vector<uint32_t>& usIfIndex, bool multipleUpstreams, const std::string& from);
int runCommand(const std::vector<std::string>& files, bool brief);
int listOperationsCommand();
int demoCommand(const std::string& scenarioDir);
int captureCommand(const std::string& file, bool follow, double intervalSeconds);
int dumpCommand(const std::string& file, bool useLock);
int loadCommand(const std::string& file, bool force);
int diffCommand(const std::string& a, const std::string& b, bool json);

// Where the shipped scenarios are: the given directory, else the source
// tree this binary was built from, else the installed copy.
std::string scenarioDirectory(const std::string& given);

}  // namespace qosdb
