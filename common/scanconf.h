// The reader of configuration files. A file is a sequence of lines, each with a keyword:
//   set NAME "VALUE"     sets a configuration variable
//   process, node, dunit, site, debug     are recorded for the caller
// A line that does not follow its pattern is reported on standard error and skipped as a whole.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "common/variables.h"
#include "errutils/statuss.h"

// What the lines say, in their order. The reader knows the fields' shapes; what they mean is the
// caller's business.
struct ConfigRecord {
  struct Process {  // process NAME NODE KIND "COMMAND"
    std::string name;
    std::int32_t node;
    std::int32_t kind;
    std::string command;
  };
  struct Node {  // node NUMBER UNIT HOST PORT SITE TEXT
    std::int32_t number;
    std::int32_t unit;
    std::string host;
    std::int32_t port;
    std::string site;
    std::string text;
  };
  struct DataUnit {  // dunit NAME NUMBER KIND TEXT
    std::string name;
    std::int32_t number;
    std::int32_t kind;
    std::string text;
  };
  struct Site {  // site NAME NUMBER TEXT
    std::string name;
    std::int32_t number;
    std::string text;
  };
  struct Debug {  // debug MASK TEXT
    std::int32_t mask;
    std::string text;
  };

  std::vector<Process> processes;
  std::vector<Node> nodes;  // each number once
  std::vector<DataUnit> dunits;
  std::vector<Site> sites;
  std::vector<Debug> debugs;
};

void sleepOneSecond();

// Fills record, whose earlier contents are forgotten, and sets the variables of the process. A file
// that cannot be opened, or a pipe that nobody has opened for writing, is tried ten times, with a
// pause between; one that cannot be read six times. Severity 4: 5500 and 5502 with errno (EFBIG:
// more than 128 MiB) end the reading, and nothing has changed; the status of a `set` that its
// variable refused (the first one) is returned after the whole file took effect.
void scanConf(const char* path, ConfigRecord& record, Status& status,
              const std::function<void()>& pause = sleepOneSecond);

// The same on top of what record and variables have already, as a second configuration file does.
// 400 (number, path): a node that the record has; then nothing of the file takes effect. To judge a
// file without its taking effect, give a copy of the process's variables.
void addConf(const char* path, ConfigRecord& record, VarSet& variables, Status& status,
             const std::function<void()>& pause = sleepOneSecond);
