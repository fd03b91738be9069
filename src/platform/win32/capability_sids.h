#pragma once
// The capability SIDs of a capability name (here: the companion app's package family name).
//
// Windows 10 and later export DeriveCapabilitySidsFromName from kernelbase.dll; it is looked
// up at run time, never imported, so that the program also starts where it is missing (Wine
// 8, older Windows). There the SIDs are derived the documented way:
// - the capability group SID is S-1-5-32-h0-...-h7 and, for any name outside the twelve
//   legacy capabilities of Windows 8, the capability SID is S-1-15-3-1024-h0-...-h7, where
//   h0..h7 are the SHA-256 hash of the upper-cased name in UTF-16LE read as eight
//   little-endian 32-bit words;
// - a legacy capability (internetClient, ..., contacts) keeps its published SID
//   S-1-15-3-<rid> as its capability SID.
// Both functions return what DeriveCapabilitySidsFromName returns: one SID in each array, the
// arrays and the SIDs allocated with LocalAlloc (the caller frees them with LocalFree).

#include <windows.h>

namespace zaltor::platform::win32 {

using DeriveCapabilitySidsFn = BOOL(WINAPI*)(LPCWSTR name, PSID** group_sids, DWORD* group_count,
                                             PSID** capability_sids, DWORD* capability_count);

// DeriveCapabilitySidsFromName of kernelbase.dll, or null where the system has none.
DeriveCapabilitySidsFn find_derive_capability_sids();

// The one the service uses: the system's where there is one, else the documented derivation.
DeriveCapabilitySidsFn choose_derive_capability_sids();

// The documented derivation (BCrypt SHA-256). False with the error in GetLastError when the
// name is empty or a system call fails.
BOOL WINAPI derive_capability_sids_by_hash(LPCWSTR name, PSID** group_sids, DWORD* group_count,
                                           PSID** capability_sids, DWORD* capability_count);

}  // namespace zaltor::platform::win32
