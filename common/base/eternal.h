// A static object whose destructor never runs, so that code that runs after main (a destructor of
// another static object, a handler of atexit) can still use it:
//   constinit Eternal<LogMsg> storage;
//   LogMsg& logmsg = storage.value;
#pragma once

#include <utility>

template <class T>
union Eternal {
  template <typename... Arguments>
  constexpr explicit Eternal(Arguments&&... arguments)
      : value(std::forward<Arguments>(arguments)...) {}
  constexpr ~Eternal() {}  // NOLINT(modernize-use-equals-default): of a union, that is deleted

  T value;
};
