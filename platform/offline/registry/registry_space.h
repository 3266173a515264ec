// The registry as one tree, \Registry, with the machine's hives hung into it.
//
//   \Registry\Machine   HARDWARE (in memory), SAM, SECURITY, SOFTWARE, SYSTEM
//   \Registry\User      .DEFAULT and S-1-5-18 (the same hive), and of each profile in the machine's
//                       ProfileList the user's SID, and SID_Classes
//
// A hive whose file is missing is no part of it. Some keys are links that a running Windows makes:
// SYSTEM\CurrentControlSet, Hardware Profiles\Current in it, and Software\Classes of a user.
//
// HKEY_CURRENT_USER is S-1-5-18 for uid 0; for another it is the profile whose folder has the name
// of the host's user, or .DEFAULT without one.
#pragma once

#include <deque>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "platform/error.h"
#include "platform/offline/registry/hive.h"
#include "platform/registry.h"
#include "support/string.h"

namespace platform::posix {

// A hive's place in the registry.
struct Mount {
  enum class Kind { Plain, System };

  Mount(const HostPath& place, Kind itsKind) : file(place.spelling), hive(place), kind(itsKind) {}

  std::string file;  // the host's name

  Hive hive;
  Kind kind;
  std::u16string sid;    // of a user whose classes have a hive of their own
  bool isReady = false;  // has its links
};

// One key, or in the merged view of classes the user's key over the machine's; either may be null.
struct KeyPair {
  KeyPtr first;
  KeyPtr second;
};

class RegistrySpace {
 public:
  // That of this process's machine.
  static RegistrySpace& Get();
  // Drops it. No key of it may be in use.
  static void Close();

  Code Open(registry::Root root, KeyPair* keys);

  // Goes from `from` along `names`, through hives and links. On 2, `*found` is the last key that
  // there is, and `*count` how many names lead to it.
  Code Walk(KeyPtr from, const std::vector<cvn::StringView>& names, KeyPtr* found,
            std::size_t* count);
  Code Walk(const KeyPtr& from, cvn::StringView path, KeyPtr* found);

  // To come after each operation, whose code is `code`: logs what it has changed, or drops that
  // after a failure, and lets others change the hives. Gives `code`, or why there is no success.
  // Within a change, hives that it concerns stay as they are.
  Code EndStep(Code code);

  // The steps from here on are one change.
  void BeginChange() { ++changes_; }
  // Logs it, or drops it.
  Code EndChange(bool isKept);

  // Until the end, hives that steps have looked into stay shared with other readers, and as they
  // are.
  void BeginLook() { ++looks_; }
  Code EndLook();

  Code Sync();
  Code Flush();

  // The hives that are there.
  std::vector<std::string> Files();

  // True for the keys that nothing but hives can stand below.
  bool IsFrame(const KeyPtr& key) const { return key == machine_ || key == users_; }

 private:
  RegistrySpace();

  KeyPtr AddHive(KeyNode& parent, cvn::StringView name, Mount::Kind kind,
                 cvn::StringView machinePath);
  Code AddProfiles();
  void AddProfile(const std::u16string& sid, cvn::StringView folder);
  void AddLinks(const Mount& mount, const KeyPtr& root);
  void AddControlSetLinks(const KeyPtr& root);
  Code OpenCurrentUser(KeyPtr* key);
  Code OpenClasses(KeyPair* keys);
  Code Go(KeyPtr from, std::span<const cvn::StringView> names, KeyPtr* found, std::size_t* count);
  Code Enter(KeyPtr* key);
  Code FollowLink(KeyNode& link, KeyPtr* target);
  // Takes a step with each hive, and gives the first failure.
  Code WithAll(Code (Hive::*step)());

  const Code state_;
  Hive space_;
  std::deque<Mount> mounts_;
  KeyPtr root_;
  KeyPtr machine_;
  KeyPtr users_;
  KeyPtr default_;
  KeyPtr currentUser_;
  bool hasProfiles_ = false;
  int changes_ = 0;  // that are open, one in the other
  int looks_ = 0;
  int linksFollowed_ = 0;  // on the way of the present Walk
};

// The names of a path, without the empty ones.
std::vector<cvn::StringView> NamesOf(cvn::StringView path);

}  // namespace platform::posix
