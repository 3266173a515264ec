// The security descriptors of new files and folders.
//
// Descriptors are self-relative, as [MS-DTYP] 2.4.6 lays them out, and as drivers for NTFS hand
// them over: a header with offsets, an owner, a group, and two lists of entries (ACLs of ACEs).
#pragma once

#include <span>
#include <vector>

namespace platform::security {

enum class NewObject { File, Folder };

// The descriptor that Windows gives to what is made in the folder with the descriptor `parent` by a
// caller who asks for none: the entries that the folder passes on, as "ACE Inheritance Rules" has
// it, with the rights and owners of files in place of generic ones, and the owner and the group of
// `made`, which is what the new object has so far. Where the folder passes nothing on, or its
// descriptor is damaged, the owner and the system get full access, as from the default DACL of an
// administrator.
//
// Object ACEs, which only directory services use, pass on nothing. Nothing at all when `made` has
// no owner and group, or the lists grow beyond 64 KiB.
std::vector<std::byte> Inherit(std::span<const std::byte> parent, std::span<const std::byte> made,
                               NewObject kind);

// One that gives full access to the owner of `made`, inherits nothing and passes nothing on.
// Nothing as above.
std::vector<std::byte> ForOwnerAlone(std::span<const std::byte> made);

}  // namespace platform::security
