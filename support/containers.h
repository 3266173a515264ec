// The containers of the system.
#pragma once

#include <functional>
#include <map>
#include <vector>

namespace cvn {

template <typename T>
using List = std::vector<T>;

// Ordered by key. Texts order by their UTF-16 code units, and are found by views without a copy.
template <typename Key, typename Value>
using Map = std::map<Key, Value, std::less<>>;

}  // namespace cvn
