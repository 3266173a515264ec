// The files of an external patch where the patch lies: found, opened and judged, never changed.
//
// To judge a patch without running it:
//
//   PatchFolder folder;
//   folder.Hold(patchPath);
//   ReadCatalogEntries(&entries, heldCatalog, GetParentFolder(patchPath), PathFilter());
//   const std::size_t own = folder.FindPatch(entries, patchPath, contentHash);
//   for (each entry but the one at `own`) folder.Judge(entry);
#pragma once

#include <cstddef>

#include "platform/error.h"
#include "platform/files.h"
#include "platform/held_folder.h"
#include "support/containers.h"
#include "support/string.h"
#include "trust/catalog.h"

namespace tessel {

// What a file is that a catalog lists.
enum class FileState {
  Genuine,     // it has the listed digest
  Missing,     // there is none
  NoFile,      // a pipe, a socket or a device
  ManyAlike,   // it isn't spelled as listed, and several others differ from that in case alone
  Unreadable,  // it can't be opened, or hashed
  HasChanged,  // it has another digest
};

// The words for a state other than Genuine, as they are traced.
cvn::StringView WordsFor(FileState state);

class PatchFolder {
 public:
  PatchFolder();

  // Holds the folder of the patch at `patchPath`. All that follows looks into that folder, even
  // when its name leads elsewhere by then. 0 or the platform's code.
  platform::Code Hold(cvn::StringView patchPath);

  // The number of the entry that is the patch itself, with the digest `contentHash` of the bytes
  // that were read to be run: its name is that of the patch, but for case, or leads to the same
  // file. The number of entries when none is, or when the file at `patchPath` has other bytes by
  // now. `code` gets 0, 1627 when the patch can't be hashed, or 1168.
  std::size_t FindPatch(const cvn::List<CatalogEntry>& entries, cvn::StringView patchPath,
                        cvn::StringView contentHash, platform::Code* code);

  // Opens a listed file for reading. Genuine stands for success. One outside the folder is opened
  // by its path.
  FileState Open(const CatalogEntry& entry, platform::files::File* file);

  // Genuine, HasChanged or Unreadable: an open file, the listed one or a copy, by its digest.
  FileState Compare(platform::files::File* file, const CatalogEntry& entry) const;

  // Opens and compares.
  FileState Judge(const CatalogEntry& entry);

  // Opens "patch.cat" or another file of the folder that isn't listed, as OpenRegular does.
  platform::Code OpenUnlisted(cvn::StringView name, platform::files::File* file);

 private:
  bool LeadsTo(const platform::files::File& patch, const CatalogEntry& entry);

  cvn::String path_;
  platform::files::HeldFolder folder_;
  CatalogFunctions functions_;
};

// Where a listed file lies below the patch's folder, as the catalog spells it, with "." and ".."
// worked in; empty when that is outside.
cvn::String PlaceInFolder(const CatalogEntry& entry);

}  // namespace tessel
