// System family: cellular data calls and name resolution.
#pragma once

#include <cstddef>
#include <cstdint>

// sys_getCellularDataConnectionStatus values.
constexpr int SYS_DATA_CALL_DISCONNECTED = 0;
constexpr int SYS_DATA_CALL_CONNECTING = 1;
constexpr int SYS_DATA_CALL_CONNECTED = 2;

// A caller's buffer is too small; the size needed has been written back.
constexpr int SYS_RESULT_BUFFER_TOO_SMALL = 7;

// The device's ordinary Internet data call. 0 on success.
int sys_getCellularDataConnectionStatus(int* status);
int sys_cellularDataConnect(int profileIndex);
int sys_cellularDataDisconnect(int profileIndex);

// Opens a data call on the carrier's administrative ("apps") APN under the caller's call id.
// interfaceName receives the call's network interface name, NUL-terminated; *size is the
// buffer's size in bytes. With a null or too small buffer the result is
// SYS_RESULT_BUFFER_TOO_SMALL and *size the size needed (terminator included). ipFamily: 0 for
// IPv4 and IPv6, 4 or 6 for one of them. 0 when the call is up.
int sys_cellularDataUsageAPNCallConnect(char* interfaceName, uint32_t* size, const char* callId,
                                        int ipFamily = 0);
// Closes the apps-APN call opened under callId. 0 on success.
int sys_cellularDataUsageAPNCallDisconnect(const char* callId);

// Result buffer of sys_resolveHostName: up to SYS_RESOLVE_MAX_ENTRIES slots of
// SYS_RESOLVE_ENTRY_SIZE bytes, each a NUL-terminated address text (IPv4 dotted quad or IPv6),
// filled from the first slot on; unused slots stay as the caller left them (zeroed).
constexpr size_t SYS_RESOLVE_BUFFER_SIZE = 1280;
constexpr size_t SYS_RESOLVE_ENTRY_SIZE = 64;
constexpr int SYS_RESOLVE_MAX_ENTRIES = static_cast<int>(SYS_RESOLVE_BUFFER_SIZE / SYS_RESOLVE_ENTRY_SIZE);

// Resolves hostName with the name servers of resolverFile (lines "nameserver ADDRESS"), over
// the given interfaces, within timeoutSeconds. result holds SYS_RESOLVE_BUFFER_SIZE bytes;
// *count is in: the most addresses wanted, out: the number written. 0 on success (which may
// still find no address: *count 0).
int sys_resolveHostName(const char* hostName, const char* resolverFile, const char* ipv4Interface,
                        const char* ipv6Interface, int timeoutSeconds, char* result, int* count);
