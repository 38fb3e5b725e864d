// What became of a creation that demands to be the only one: the result of createSegment and
// utlCreateOwnMutex.
#pragma once

enum class Whose {
  NOBODYS,    // there is none
  OURS,       // this call made it
  STRANGERS,  // it was there before
};
