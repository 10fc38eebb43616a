/// The shared header: the node's role, how processes are observed, the four
/// locks and the pending-ask flag. Every source file of the daemon includes it,
/// and so has its own copy of the locks.
#pragma once

#include <cstdint>

#include <Poco/Mutex.h>

/// The node's role. 1 master, 2 slave; 0 means unset. Other numbers can be
/// configured or passed by mistake, so the type keeps them as they are.
using MODE = std::int32_t;

inline constexpr MODE MODE_UNSET = 0;
inline constexpr MODE MODE_MASTER = 1;
inline constexpr MODE MODE_SLAVE = 2;

/// How managed processes are observed. The running check accepts it and looks
/// at /proc in the same way for both values.
enum OBSERVATION_MODE : std::int32_t
{
	OBSERVATION_MODE_1 = 1,
	OBSERVATION_MODE_2 = 2
};

/// 1 while this node has given up the master role and asks its partner to take
/// over, else 0. Written by the receiver thread, read by the sender thread for
/// every heartbeat; access it through velarix::loadShared and storeShared.
extern std::int32_t g_specialAsking;

// Every source file has its own four locks: a lock taken in one source file
// never excludes code of another one. The run-info file is serialised by the
// INI editor's own copy alone; making these `extern` would let a reader wait
// for ever behind an editor that failed (its lock stays taken on purpose).
// Pinned by RunInfoLocks.EachSourceFileHasItsOwnCopy.
// Where two are taken the order is g_handlerMutex, then g_pIDMutex.
[[maybe_unused]] static Poco::Mutex g_handlerMutex;
[[maybe_unused]] static Poco::Mutex g_pIDMutex;
[[maybe_unused]] static Poco::Mutex g_modeMutex;
[[maybe_unused]] static Poco::Mutex g_runTimeRecodeMutex;
