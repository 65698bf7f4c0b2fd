#pragma once

#include <map>

#include "platform/mutex/MutexImpl.h"

namespace util {

// A multimap with a lock of its own. Its users lock it, as a mutex, and then use it as a multimap.
template <class Key, class Value, class Less>
class ThreadSafeMultiMap : public std::multimap<Key, Value, Less>, public platform::mutex::MutexImpl {};

}  // namespace util
