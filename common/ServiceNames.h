// Foundation layer: constants that the service, its clients and its tool share.
#pragma once

namespace Velk {

constexpr unsigned short kServicePort = 11001;      // UDP
constexpr char kServiceHere[] = "127.0.0.1:11001";  // the service on this machine
constexpr char kServicePassword[] = "mosk";         // a peer needs it to be admitted
constexpr char kSyncPath[] = "/tmp/synclog";        // written by "SyncLog"
constexpr char kConfigPath[] = "/flash/conf/kavlune.conf";

// Configuration variables for forwarding, and the only type that enables it (case-sensitive).
constexpr char kRemoteLogType[] = "remotelog_type";
constexpr char kRemoteLogAddress[] = "remotelog_addr";
constexpr char kSyslogServerType[] = "SysLog server";

}  // namespace Velk
