// What both sides of the IPC benchmark make: 500 nodes with four buffers each, the dictionary
// buffer apart.
#pragma once

constexpr int node_count = 500;
constexpr int keys_apart = 10;  // between the base keys
constexpr int first_base = 1000;
constexpr unsigned buffer_bytes = 65536;
constexpr unsigned dictionary_bytes = 4194304;
constexpr int semaphores = 8;
