// The standard's containers, with the settings that hold everywhere.
#pragma once

#include <functional>
#include <map>
#include <vector>

namespace cvn {

template <typename T>
using List = std::vector<T>;

// Ordered by key; texts by code units. std::less<> finds a text by a view, without a copy.
template <typename Key, typename Value>
using Map = std::map<Key, Value, std::less<>>;

}  // namespace cvn
