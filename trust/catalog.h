// What a catalog says of the files of an external patch, and their digests.
#pragma once

#include <functional>

#include "platform/catalogs.h"
#include "platform/error.h"
#include "platform/files.h"
#include "support/containers.h"
#include "support/string.h"

namespace tessel {

using CatalogFunctions = platform::catalogs::Functions;

// A member of the catalog that names a file and has its SHA-256 digest.
struct CatalogEntry {
  cvn::String
      path;  // in lower case, for the trace: the catalog's base folder and the member's name
  cvn::String name;  // the member's name, as the catalog spells it
  cvn::String hash;  // 64 lower-case hexadecimal digits
  cvn::String tag;   // the reference tag
};

// Binds the functions that older platforms lack.
void BindCatalogFunctions(CatalogFunctions* functions);

// The SHA-256 digest of an open file as a catalog has it, in lower-case hexadecimal digits. 0 or
// the platform's code.
platform::Code CalcFileHash(const CatalogFunctions& functions, platform::files::File* file,
                            cvn::String* hashText);

// True for a path that is to be taken.
using PathFilter = std::function<bool(cvn::StringView path)>;

// Fills the list with the usable members of a catalog, in the order of their paths. Names count
// from `baseFolder`, or from the program's folder when that is empty. `filter` may be empty. 0,
// 1168 when there is no catalog, or the platform's code.
platform::Code ReadCatalogEntries(cvn::List<CatalogEntry>* entries, cvn::StringView catalogPath,
                                  cvn::StringView baseFolder, const PathFilter& filter);

}  // namespace tessel
