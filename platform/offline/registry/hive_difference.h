// Differences of two hives by their keys, and hives brought from one side of them to the other.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "platform/error.h"
#include "platform/formats/hive_image.h"
#include "platform/machine_changes.h"

namespace platform::posix {

// As CompareHives, of hives that are open.
Code CompareImages(const HiveImage& before, const HiveImage& after, cvn::StringView hive,
                   cvn::List<machine::KeyChange>* changes);

// As ApplyKeyChanges. `time` becomes the time of last write of the keys that change. After a
// failure the image has a part of the changes.
Code ApplyToImage(std::span<const machine::KeyChange> changes, machine::Side to, std::uint64_t time,
                  HiveImage* image);

// As FindOtherKeys.
Code FindOthersInImage(const HiveImage& image, std::span<const machine::KeyChange> changes,
                       machine::Side side, std::vector<std::size_t>* others);

// What a key is besides its name and what it holds.
Code ReadForm(const HiveImage& image, HiveImage::Cell key, machine::KeyState* state);

}  // namespace platform::posix
