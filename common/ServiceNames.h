// Foundation layer: what the service, its clients and its tool must agree on.
#pragma once

namespace Velk {

constexpr unsigned short kServicePort = 11001;      // UDP
constexpr char kServiceHere[] = "127.0.0.1:11001";  // the service of the same machine
constexpr char kServicePassword[] = "mosk";         // that every peer proves to know
constexpr char kSyncPath[] = "/tmp/synclog";        // which a "SyncLog" call writes
constexpr char kConfigPath[] = "/flash/conf/kavlune.conf";

// The configuration variables, and the one type that switches forwarding on, to the letter.
constexpr char kRemoteLogType[] = "remotelog_type";
constexpr char kRemoteLogAddress[] = "remotelog_addr";
constexpr char kSyslogServerType[] = "SysLog server";

}  // namespace Velk
