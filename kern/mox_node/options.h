// The command line: a verb, its options, and the words of the description. `error` holds the first
// mistake; the scan goes on behind it, so that the mistake can be told in the format asked for.
#pragma once

#include <string>
#include <vector>

namespace moxnode {

enum class Verb { NONE, STATUS, PLAN, UP, DOWN };
enum class Format { TEXT, JSON, PROMETHEUS };

// "status" to "down"; null for NONE.
const char* name_of(Verb verb);

struct Options {
  Verb verb = Verb::NONE;
  Format format = Format::TEXT;
  std::string output_file;  // empty: standard output
  std::string file;         // empty: the words are the description
  std::string user;         // empty: whoever owns the objects
  int wait = 0;             // seconds
  bool all = false;
  bool repair = false;
  bool force = false;
  bool verbose = false;
  bool help = false;
  bool version = false;
  std::vector<char*> words;  // of argv
  std::string error;         // empty: none
};

Options scan_options(int argc, char** argv);

extern const char* const usage_text;

}  // namespace moxnode
