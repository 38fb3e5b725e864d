// The table of all configuration variables: one row a variable, in the order and with the columns
// of its documentation, so that the two can be compared by eye.
#include "common/variables.h"

namespace {

struct IntegerRow {
  const char* name;
  std::int32_t minimum;
  std::int32_t initial;
  std::int32_t maximum;
};

struct StringRow {
  const char* name;
  const char* initial;
  const char* allowed;
};

// clang-format off
constexpr IntegerRow integers[] = {
    //                              minimum    default     maximum
    {"acktimeout",                     100,        500,        5000},
    {"accessinfo_disable",               0,          0,  2147483647},
    {"aliveint",                        40,       1250,        2000},
    {"alivetime",                        0,       3750,  2147483647},
    {"buffsize",                      4096,      16384,       32768},
    {"buffsize1",                     4096,       4096,       32768},
    {"buffsize2",                     4096,       4096,       32768},
    {"buffsize3",                     4096,       4096,       32768},
    {"buildtimeout",                    50,       1250,        2000},
    {"ckptinterval",                  1000,      10000,       20000},
    {"clientkey",                        0,          0,  2147483647},
    {"config",                           0,          0,  2147483647},
    {"configversion",                    0,          0,  2147483647},
    {"cpuid",                            0,          0,  2147483647},
    {"destports",                        0,       1000,  2147483647},
    {"diskpolltime",                     1,         10,         100},
    {"etcdir",                           0,          0,  2147483647},
    {"transpriority",                    0,          3,           9},
    {"historytime",                      0,          2,  2147483647},
    {"inmsgheapsize",                    0,          0,  2147483647},
    {"loadbalancedelay",                 1,       1000,  2147483647},
    {"loadbalanceinterval",              0,          0,      600000},
    {"loadbalanceloadmix",               0,          0,         100},
    {"loadbalancethreshold",             0,         50,         100},
    {"locktimeout",                      1,       5000,  2147483647},
    {"logbuffsize",                2097152,   16777216,  2147483647},
    {"loglimit0",                        0,         60,  2147483647},
    {"loglimit1",                        0,         15,  2147483647},
    {"loglimit2",                        0,         10,  2147483647},
    {"loglimit3",                        0,          5,  2147483647},
    {"lognotexec",                     100,       5000,      100000},
    {"logtimeout",                      50,        300,         600},
    {"hsredopct",                        5,         45,         100},
    {"longtransquantum",                 1,         20,       10000},
    {"longtranspriority",                0,          7,           9},
    {"maxconcurrentbackuptables",        1,          4,          10},
    {"maxbootidle",                  10000,      10000,      200000},
    {"maxlogintrans",                    0,          0,  2147483647},
    {"nregisters",                      32,         32,         256},
    {"maxrepairidle",                40000,     360000,     3600000},
    {"maxtransidle",                     1,      40000,  2147483647},
    {"maxfields",                        0,        256,  2147483647},
    {"msgwaittime",                      1,         10,  2147483647},
    {"msgheapsize",                      0,    1000000,  2147483647},
    {"msgkey",                           0,  429262608,  2147483647},
    {"msgqueuesize",                     0,     500000,  2147483647},
    {"numacktimeouts",                   0,          4,  2147483647},
    {"nbuffs",                         100,       4096,  2147483647},
    {"nbuffs1",                          0,          0,  2147483647},
    {"nbuffs2",                          0,          0,  2147483647},
    {"nbuffs3",                          0,          0,  2147483647},
    {"numbuildtimeouts",                 0,          4,  2147483647},
    {"nfragments",                     100,       5500,  2147483647},
    {"niblocksize",                   4096,       4096,       32768},
    {"nlock",                        20000,      50000,  2147483647},
    {"nlockhash",                     2000,       5000,  2147483647},
    {"nlockheader",                  20000,      50000,  2147483647},
    {"nnilogbuff",                     600,       3072,       16384},
    {"nnitrans",                        50,        500,        5000},
    {"nnitranshash",                     5,        250,  2147483647},
    {"nodes",                            0,          2,        4096},
    {"np_restart_delay",                 0,          0,  2147483647},
    {"nprocedures",                    100,        500,       10000},
    {"nreplicas",                      200,       8800,  2147483647},
    {"nsesshash",                       10,         75,       10000},
    {"nsessions",                        1,        100,       10000},
    {"nstoptrans",                       0,         10,  2147483647},
    {"ntables",                        100,       1100,        1100},
    {"ntrans",                         200,      10000,  2147483647},
    {"ntranshash",                       3,       5000,  2147483647},
    {"outmsgheapblocks",                 0,          0,  2147483647},
    {"outmsgheapsize",                   0,          0,  2147483647},
    {"participatetimeout",               0,       6250,  2147483647},
    {"psupntime",                        0,         50,  2147483647},
    {"psupstartntime",                   0,        500,  2147483647},
    {"psupint",                          0,        200,  2147483647},
    {"relalg_max_executions",            1,         10,  2147483647},
    {"relalg_split_limit",               1,     100000,  2147483647},
    {"relalg_merge_limit",               1,         80,  2147483647},
    {"relalg_hash_grp_cnt",              1,          7,  2147483647},
    {"relalg_min_buckets",               1,        307,  2147483647},
    {"relalg_max_buckets",               1,      10369,  2147483647},
    {"relalg_blocksize",              4096,       8192,       65536},
    {"relalg_device_size",               1,      32768,  2147483647},
    {"relalg_workspace_size",        32768,   16777216,  2147483647},
    {"relalg_statinterval",              0,          0,  2147483647},
    {"event_buffsize",                   0,          0,  2147483647},
    {"repairlimit",                     10,         20,         300},
    {"repairblocktime",                300,       3600,  2147483647},
    {"repairlimit",                      0,         20,  2147483647},
    {"rescontrol",                       0,          0,          15},
    {"resloglvl",                        0,         10,  2147483647},
    {"res_recover_tps",                  0,         10,  2147483647},
    {"res_repair_tps",                   0,         10,  2147483647},
    {"res_restore_tps",                  0,         20,  2147483647},
    {"res_tlevel",                       0,          5,  2147483647},
    {"res_maxtrans",                     1,         10,  2147483647},
    {"rtpriority",                       0,          0,  2147483647},
    {"sessiongracetime",                 0,      60000,    86400000},
    {"ru_nblocks_logstore",              0,       4096,  2147483647},
    {"ru_pblocks_reserve",               0,          1,         100},
    {"ru_ntrans_delay",                  0,         10,  2147483647},
    {"ru_trans_delay",                   0,        100,  2147483647},
    {"b3_delay_blockdel",                0,          1,  2147483647},
    {"debugmanynodes",                   0,          0,           1},
    {"sql_tcp_portno",                   0,       1862,       65535},
    {"sql_shm_size",                159232,    2097152,  2147483647},
    {"sql_shm_gclvl",                    0,         25,         100},
    {"sql_shm_gcunused",                 0,       3600,  2147483647},
    {"sqlsub_portno",                    0,          0,       65535},
    {"sqlsub_timeout",                   0,         10,     2147483},
    {"sql_login_timeout",                0,         10,     2147483},
    {"sql_client_timeout",               0,       1800,     2147483},
    {"sql_eager_timeout",                0,        120,     2147483},
    {"sql_eager_threshold",              0,         50,         100},
    {"sql_eager_interval",               0,          5,     2147483},
    {"statd_flush_interval",             0,         60,  2147483647},
    {"statd_fetch_interval",             0,         60,     2147483},
    {"snmpport",                         0,        161,       65535},
    {"trapport",                         0,        162,       65535},
    {"spares",                           0,          0,        4096},
    {"startlevel",                       0,          0,  2147483647},
    {"statinterval",                     0,         10,        1000},
    {"stripelevel",                      0,          1,           3},
    {"sync_file_write",                  0,          3,           3},
    {"sync_tape_write",                  0,          3,           3},
    {"directio",                         0,          1,           1},
    {"longtransthreshold",               0,        250,  2147483647},
    {"transquantum",                     0,        100,  2147483647},
    {"transrunlimit",                    0,          0,  2147483647},
    {"transpripollint",                  0,         10,  2147483647},
    {"udprecvbufsize",               65535,     250000,     1000000},
    {"backupuid",                        0,          0,  2147483647},
};

constexpr const char* any = nullptr;

constexpr StringRow strings[] = {
    //                           default                    allowed
    {"defaultversion",           "",                        "auto|3|4"},
    {"diagnosticfile",           "",                        any},
    {"dictbootlock",             "",                        "on|off"},
    {"disablefile",              "",                        any},
    {"corefileprefix",           "",                        any},
    {"eventlog_source",          "KORV",                    any},
    {"syslog_facility",          "local0",                  "|none|local0|local1|local2|local3|local4|local5|local6|local7|kern|user|mail|daemon|auth|syslog|lpr|news|uucp|cron"},
    {"syslog_ident",             "KORV",                    any},
    {"loglevmap_dbg",            "",                        any},
    {"loglevmap_inf",            "",                        any},
    {"loglevmap_wrn",            "warning",                 any},
    {"loglevmap_err",            "err",                     any},
    {"loglevmap_vse",            "alert",                   any},
    {"loglevmap_dia",            "err",                     any},
    {"loglevmap_tst",            "",                        any},
    {"historyfile",              "",                        any},
    {"historysubst",             "shmkey",                  "none|nodeno|shmkey|nodenoshmkey|shmkeynodeno"},
    {"inetd",                    "",                        "auto|yes|no"},
    {"logfile",                  "",                        any},
    {"logicnodefile",            "",                        any},
    {"enable_external_message",  "yes",                     "yes|no"},
    {"ar_sender",                "off",                     "on|off"},
    {"sql_errtrace",             "no",                      "yes|no"},
    {"sql_conn_trace",           "yes",                     "yes|no"},
    {"sql_flush",                "yes",                     "yes|no"},
    {"sql_fork",                 "yes",                     "yes|no"},
    {"sql_threaded",             "yes",                     "yes|no"},
    {"sql_trace",                "none",                    "none|short|full"},
    {"sql_use_shm",              "yes",                     "yes|no"},
    {"noman_devicename",         "",                        any},
    {"noman_ninstances",         "",                        any},
    {"relalg_devicename",        "",                        any},
    {"rocommunity",              "",                        any},
    {"rwcommunity",              "",                        any},
    {"trapaddress",              "",                        any},
    {"trapcommunity",            "",                        any},
    {"timeformat",               "",                        any},
    {"restoreexistingtables",    "abort",                   any},
    {"backupdirectory",          "/",                       any},
    {"backupfilepermissions",    "644",                     any},
};

constexpr const char* obsolete[] = {
    "backup_tape",
    "res_xfeedb",
    "res_xmax",
    "res_xmin",
    "res_xmpl",
    "res_xqueue",
    "res_xsampl",
    "backupdevicemapping",
    "backupdevice0",
    "backupdevice1",
    "backupdevice2",
    "backupdevice3",
    "backupdevice4",
    "backupdevice5",
    "backupdevice6",
    "backupdevice7",
    "backupdevice8",
    "backupdevice9",
    "backupdevice10",
    "backupdevice11",
    "backupdevice12",
    "backupdevice13",
    "backupdevice14",
    "backupdevice15",
    "backupdevice16",
    "backupdevice17",
    "backupdevice18",
    "backupdevice19",
};
// clang-format on

}  // namespace

// A name that is defined twice means its later definition.
void defineVariables(VariableDict& dict) {
  const auto insert = [&dict](const auto&... row) {
    Variable variable;
    variable.define(row...);
    dict.insert(variable);
  };
  for (const IntegerRow& row : integers) insert(row.name, row.minimum, row.initial, row.maximum);
  for (const StringRow& row : strings) insert(row.name, row.initial, row.allowed);
  for (const char* name : obsolete) {
    Variable variable;
    variable.define_obsolete(name);
    dict.insert(variable);
  }
}
