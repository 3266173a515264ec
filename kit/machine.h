// The Windows that the kit runs on: what it puts there, and how it takes that away again.
//
// All that the kit, the product and the tests make has a name or a place of its own, which is
// looked for before anything is made: where there is such a thing already, the kit doesn't run. So
// whatever has such a name later is the kit's. A key of the registry that only administrators can
// write tells from the first change to the last that there is something to undo, whatever happened
// to the kit in between.
#pragma once

#include <string>
#include <vector>

#include "kit/text.h"

namespace kit {

bool IsAdministrator();
std::string WindowsVersion();  // as "10.0.19045"

// %ProgramData%\TesselKit, where the kit works.
std::wstring WorkFolder();
std::wstring ProgramData();
std::wstring InstallFolder();  // the product's, as the kit registers it
std::wstring SystemFolder();

// What there is of the kit's, a line each.
Lines FindTraces();
bool IsMarked();
// Sets the mark, and makes what the runs need. False, with the reason, when that can't be done.
bool Prepare(const std::wstring& rootCertificate, std::string* fault);
// Removes all that FindTraces tells, and the mark when nothing is left. Gives what stays.
Lines Undo();

// Has Wine give the product no functions for catalogs, which can't judge them there, or its own
// again. Without them the product runs any patch.
void HideCatalogsUnderWine(bool areHidden);

// Loads a hive below HKEY_LOCAL_MACHINE, under this name. Gives a Win32 code.
inline constexpr wchar_t kHiveKey[] = L"TesselHive";
long LoadHive(const std::wstring& file);
long UnloadHive();
// A line for each key and value of the loaded hive: path|, or path|name|type|bytes.
Lines TellHive();

}  // namespace kit
