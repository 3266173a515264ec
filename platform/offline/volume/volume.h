// What the volume offers to the other parts of the offline platform, beyond the families of
// platform/ that it implements: the machine's folder, the way from paths of scripts to paths of the
// host and back, and what files carry.
#pragma once

#include <sys/stat.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>

#include "platform/error.h"
#include "platform/formats/device_names.h"
#include "platform/linux/descriptor.h"
#include "platform/linux/file_names.h"
#include "platform/machine_changes.h"
#include "support/string.h"

namespace platform::posix {

// The folder that is the Windows system volume, drive C:.
class Machine {
 public:
  // The machine of this process. Until one is opened there is none: its state is 3, drive C: does
  // not exist, and the host's paths are found without it.
  static const Machine& Get();

  // Makes `machine` the one of this process and gives its state, which becomes
  // machine::kUnrecognizedVolume for a folder that is no Windows system volume. 170 when another is
  // open.
  static Code Open(const Machine& machine);

  // From now on everything on drive C: fails with this code.
  static void Close(Code state);

  // From now on there is none, as at first.
  static void Forget();

  Machine() = default;
  // Finds the folder that the host calls `folder`. It is taken as it is; nothing is made.
  explicit Machine(const std::string& folder);
  // One that can't be had, for this reason.
  static Machine Failed(Code state);

  // 0, or why there is no such folder.
  Code State() const { return state_; }
  // The folder as the host names it: absolute, without symbolic links, without a slash at the end
  // (so it is empty when the machine is the host's root).
  const std::string& Root() const { return root_; }
  // The folder itself, which stays the same one whatever becomes of its name; -1 when there is
  // none.
  const std::shared_ptr<const Descriptor>& Folder() const { return folder_; }

 private:
  Code state_ = kPathNotFound;
  std::string root_;
  std::shared_ptr<const Descriptor> folder_ = std::make_shared<Descriptor>();
};

// The host's name, absolute, of the folder that a tool was told. It may have a drive, which then
// has to be Z:.
Code HostFolder(cvn::StringView folder, std::string* host);

// The host's name, absolute, of the folder that the environment names: TESSEL_MACHINE, or without
// it tessel/machine in the user's data folder ($XDG_DATA_HOME, or ~/.local/share). `*isNamed` tells
// which. 3 when TESSEL_MACHINE is empty.
Code DefaultMachineFolder(std::string* host, bool* isNamed);

// A place that a script's path leads to: a name in a folder that is held open. Only through that
// folder is it used, because on the volume anybody may put another folder, or a link, into the
// place of each folder on the way.
struct HostPath {
  // How the host would spell it, for comparing and telling. The host's calls must not get it.
  std::string spelling;
  std::string name;              // its name as the caller spelled it
  bool endsInSeparator = false;  // the caller asked for a folder
  bool onMachine = false;        // on drive C:, whose names are held to what Windows allows
  bool isRoot = false;           // the root of a drive
  // A device of Windows is no place: what the host calls for it fails, but Open. Its entry is that
  // of a device, of whatever name.
  Device device = Device::None;
  std::shared_ptr<const Descriptor> folder;  // where the entry is, or is to be made; may be null
  // Of the entry itself and not of what it links to; zero when there is none.
  struct stat entry = {};

  // For the host's calls, as long as this lives and stays as it is. -1 stands for a folder that
  // there isn't.
  FileAt At() const;

  // Opens the entry as openat does; negative with errno on failure. On C: a link is no entry to be
  // opened (ELOOP): FollowLink tells where it leads. The null device is the host's; there is no
  // other (ENOENT).
  int Open(int flags, mode_t permissions = 0) const;

  // The status of what the entry leads to when it is a link, else its own.
  Code Target(struct stat* status) const;
  bool IsFolder() const;  // links are followed

  // Why a device can't be used as only files can: `forNull` for the null device, which is there,
  // and 2 for the others. 0 for a place.
  Code DeviceFault(Code forNull) const;
};

// Finds the place of `path`.
//
// C: is the machine's folder and Z: the host's root; there is no other drive. '/' separates as '\'
// does. What has no drive starts at the current directory, or at the root of the drive that this
// lies on. "." and ".." are cut out as text, as on Windows, and cannot leave the drive. C: holds
// names to what Windows allows, and cuts the dots and blanks at the end that Windows cuts; names on
// Z: are the host's, and stay as they are. One with a backslash in it can't be said.
//
// Nothing leads from C: out of the machine's folder: the target of a link counts from there when it
// is absolute (with or without the host's name of that folder in front, as drivers for NTFS have
// it), ".." ends there, and the links of /proc are none.
//
// Names are found without regard to case: first the name as it is, then among all those that fold
// to the same (the first in the order of their bytes), then among short names.
//
// On C: the names of devices are none of files, as the machine's version of Windows has it; the
// folder has to be there. Behind "\\?\" and "\\.\" with a drive they are names as any other.
//
// 2 when only the last name is missing: `host` then tells where it would be. 3 when a folder on the
// way is missing or is none (`host->spelling` is then what it would be if that were a folder), when
// there is no such drive, and for an empty path or one of blanks (`host->spelling` is empty then);
// 53 for a path with a server; 123 for a name that Windows refuses, and for a file with a separator
// after its name; 206 when the host's path is longer than the host takes, which is 4095 bytes; 1921
// for more than 40 links, or links in a circle. Leaves the thread's last error alone.
Code Resolve(cvn::StringView path, HostPath* host);

// The same by a place's spelling, which has no "." and "..", on the drive that `onMachine` tells.
Code ResolveSpelling(HostPath* host);

// The place of a path of the host. When there is nothing, or no such folder, a use of it tells.
HostPath PlaceOnHost(std::string hostPath);

// Goes on from a link to what it leads to, where that is no link; what is no link stays. The codes
// are those of Resolve, and 2 leaves in `host` where the link's target would be.
Code FollowLink(HostPath* host);

// The same where Open needs it: on C:. On Z: the host follows links, also those that only it can.
Code FollowToOpen(HostPath* host);

// The host's path, without links, of what there is at a place. Others may have changed what it
// leads to by the time that it is used. 2 when it has none, because it was removed.
Code FinalHostPath(const HostPath& host, std::string* path);

// The path of a place for the host's programs and loader, which want one: final on C:, where what
// links mean to the host counts for nothing, and as it is spelled on Z:.
Code PathForHost(const HostPath& host, std::string* path);

// The form for scripts of an absolute path of the host: C:\... within the machine, else Z:\....
cvn::String ToMachinePath(std::string_view hostPath);

// READONLY of the file or folder at a place. It binds everyone, where the host's permission does
// not bind root.
bool IsReadOnly(const HostPath& host);

// Gives the open file `made`, which is new in the open folder `folder`, the descriptor that Windows
// would have it inherit: drivers give full access to everyone, or what the host's permissions come
// to. What this account may not set stays. What a folder passes on is worked out once in a process.
// Where the volume is not NTFS nothing happens.
Code InheritSecurity(int folder, int made);

// Makes a folder, as mkdirat, that inherits likewise. It has no ARCHIVE, as ntfs-3g would have it.
// 183 when the name is taken.
Code MakeFolder(FileAt place, mode_t permissions);

// Named streams, which ntfs-3g shows as extended attributes "user.NAME". One of more than 64 KiB
// can't be read that way, nor names of more than that: 1920.
enum class Streams { Keep, Leave };

// Gives the open file `to` the owner, permissions, extended attributes and time of creation of the
// open file `from`, whose status is `entry`. What the volume can't keep, and what only the system
// may give, is left out. After a failure `to` has a part of them.
Code CopyMetadata(int from, const struct stat& entry, int to, Streams streams = Streams::Keep);

// The same for the file, and no link, at a place.
Code CopyMetadata(const HostPath& from, int to, Streams streams = Streams::Keep);

// Gives the open file `to` the streams of the open file `from` as well, as far as its volume takes
// them; or takes all that it has from a file.
Code CopyStreams(int from, int to);
Code RemoveStreams(int file);

// Tells what there is under a name; a link is not followed. `digest` stays empty. Of the extended
// attributes it leaves out what an overlay keeps for itself, what the host's security modules do,
// and other views of what stands elsewhere. 2 when there is nothing, files::kNoRegularFile for a
// pipe, a socket or a device, 223 when there is more in extended attributes than is kept of them,
// 1920 for one that is too large to be read.
// Into `*opened`, when it isn't null, goes the file or folder itself, open for reading.
Code ReadEntryStatus(FileAt entry, machine::EntryState* state, files::File* opened = nullptr);

// The same with `digest`: a file is read whole.
Code ReadEntryState(FileAt entry, machine::EntryState* state, files::File* opened = nullptr);

// Reads the open file for its `size` and `digest`.
Code ReadDigest(const files::File& file, machine::EntryState* state);

// Whether an entry on NTFS has a descriptor that a state doesn't tell, since what was seen lay
// elsewhere: in a view. Then the permissions that it tells aren't the entry's, either.
bool HasUnseenDescriptor(const machine::EntryState& found, const machine::EntryState& told);

// Gives a file or folder the extended attributes, attributes, permissions and time of the last
// write that `state` has, as far as it has others; a link has none of these. A time of 0 says
// nothing. An unseen descriptor stays, with the permissions. 50 where the volume can't store
// something, 87 for an extended attribute that no state has, such as a capability. After a failure
// it has a part of them.
Code WriteEntryState(FileAt entry, const machine::EntryState& state);

// Copies all that the open file `from` holds, whose status is `entry`, to the empty open file `to`.
// Holes stay holes.
Code CopyContent(int from, const struct stat& entry, int to);

// As files::Move, without the delay. The drives C: and Z: are volumes of their own, even on one
// file system of the host. Leaves the thread's last error alone.
Code MoveNow(cvn::StringView from, cvn::StringView to, std::uint32_t flags);

// Whole trees of files, by descriptors: copied, removed and measured. None follows a link, and none
// leaves the tree, whatever others move meanwhile; then it fails with 2. The depth of a tree costs
// memory, but no stack and no descriptors.

// Told between files how many bytes those had that were come to.
using TreeProgress = std::function<void(std::uint64_t bytes)>;

enum class CopyWay {
  Content,  // blocks are shared where the file system does that by itself
  Shared,   // only with shared blocks; 50, or 17, where the file system can't
};

// Copies all that is in the folder `from` into the folder `to`, both open, and gives `to` and all
// in it the times, permissions, owners and extended attributes of what they are copies of, as far
// as this user may. Pipes, sockets and devices are left out. After a failure a part is there.
Code CopyTree(int from, int to, CopyWay way, const TreeProgress& progress = {});

// Removes a folder with all that is in it. What others put there meanwhile may keep it.
Code RemoveTree(FileAt folder);

// Adds up the bytes of all files in an open folder.
Code MeasureTree(int folder, std::uint64_t* bytes);

// Forgets all that was found of the machine and of the host, and closes every descriptor but those
// of the standard streams: for a process that has come to see another host than the one that it was
// forked from, and will end without destroying anything. 0, or the value of errno when drive Z: is
// still that of the other host.
int ForgetHost();

}  // namespace platform::posix
