// The buffers of a node: each is a shared memory segment on a key of its own. One row a buffer
// makes its keyword and everything else that the programs know of it:
//   ROW(token, keyword, offset of its key, place in the usage text, type, meaning, initial, absent)
// buffers.h says what the columns mean. Tokens have the order of the rows.
#pragma once

#define RESMGR_BUFFERS(ROW)                                                                    \
  ROW(T_DATABUF, "databuf", 1, 0, "Int64", "Size of data buffer in bytes", 0, false)           \
  ROW(T_NLOGBUF, "nlogbuf", 3, 1, "Int32", "Size of buffer for node-internal log in bytes", 0, \
      false)                                                                                   \
  ROW(T_TLOGBUF, "tlogbuf", 2, 2, "Int32", "Size of tuple log buffer in bytes", 0, false)      \
  ROW(T_DICTBUF, "dictbuf", 4, 4, nullptr, nullptr, 0x400000, false)                           \
  ROW(T_SQLBUF, "sqlbuf", 5, 3, "Int32", "Size SQL work area in bytes", 0, false)              \
  ROW(T_EVBUF, "evbuf", 7, 5, "Int32", "Size of event buffer in bytes", 0, true)
