#include "platform/libraries.h"
#include "platform/paths.h"
#include "tests/libraries/fixture.h"
#include "tests/platform/fixture.h"

namespace platform::test {
namespace {

using libraries::Library;
using test_libraries::Built;

class LibrariesConformance : public FolderTest {
 protected:
  cvn::String FileWith(cvn::StringView name, std::string_view content) const {
    WriteContent(Path(name), content);
    return Path(name);
  }
};

TEST_F(LibrariesConformance, LoadsWhatIsALibrary) {
  const std::string image = ContentOf(Built(u"hollow.dll")).value_or("");
  ASSERT_GT(image.size(), 4096U);
  std::string otherMachine = image;
  otherMachine[image.starts_with("MZ") ? otherMachine.find("PE") + 4 : 18] = 3;
  const struct {
    cvn::String path;
    Code code;
  } kCases[] = {
      {Built(u"hollow.dll"), kSuccess},
      {Built(u"needy\\..\\HOLLOW.dll"), kSuccess},
      {FileWith(u"copy.txt", image), kSuccess},
      {Built(u"absent.dll"), kModNotFound},
      {Path(u"no folder\\hollow.dll"), kModNotFound},
      {Built(u"needy\\needy.dll"), kModNotFound},  // of what it needs
      {FileWith(u"empty.dll", ""), kBadExeFormat},
      {FileWith(u"short.dll", image.substr(0, 40)), kBadExeFormat},
      {FileWith(u"text.dll", "Not a library, whatever its name may be."), kBadExeFormat},
      {FileWith(u"machine.dll", otherMachine), kBadExeFormat},
  };
  for (const std::uint32_t flags : {libraries::kDefaultSearch, libraries::kAlteredSearchPath,
                                    libraries::kSearchLibraryFolderAndDefaults}) {
    for (const auto& example : kCases) {
      Library library;
      EXPECT_EQ(Observe([&] { return libraries::Load(example.path, flags, &library); }),
                Expected(example.code))
          << Utf8(example.path) << " with flags " << flags;
      EXPECT_EQ(library.IsLoaded(), example.code == kSuccess);
    }
  }
}

TEST_F(LibrariesConformance, LooksForABareNameBesideTheProgram) {
  const cvn::String program = test_libraries::ProgramFolder();
  const cvn::String copy = Joined(program, u"\\Tessel-beside.dll");
  const cvn::String plain = Joined(program, u"\\tessel-plain");
  for (const cvn::String& path : {copy, plain}) {
    ASSERT_EQ(files::Copy(Built(u"hollow.dll"), path, false), kSuccess);
  }
  for (const cvn::StringView name :
       {u"tessel-beside.dll", u"TESSEL-BESIDE.DLL", u"tessel-beside", u"tessel-plain."}) {
    Library library;
    EXPECT_EQ(Observe([&] { return libraries::Load(name, libraries::kDefaultSearch, &library); }),
              Expected(kSuccess))
        << Utf8(name);
    Library found;
    EXPECT_EQ(Observe([&] { return libraries::FindLoaded(name, &found); }), Expected(kSuccess))
        << Utf8(name);
    EXPECT_EQ(found.Handle(), library.Handle());
  }
  Library absent;
  EXPECT_EQ(
      Observe([&] { return libraries::Load(u"absent.dll", libraries::kDefaultSearch, &absent); }),
      Expected(kModNotFound));
  EXPECT_EQ(files::Delete(copy), kSuccess);
  EXPECT_EQ(files::Delete(plain), kSuccess);
}

TEST_F(LibrariesConformance, FindsWhatIsLoadedAndHoldsIt) {
  Library found;
  const auto find = [&] {
    return Observe([&] { return libraries::FindLoaded(u"HOLLOW", &found); });
  };
  EXPECT_EQ(find(), Expected(kModNotFound));
  Library library;
  ASSERT_EQ(libraries::Load(Built(u"hollow.dll"), libraries::kDefaultSearch, &library), kSuccess);
  EXPECT_EQ(find(), Expected(kSuccess));
  EXPECT_EQ(found.Handle(), library.Handle());
  library.Free();
  EXPECT_FALSE(library.IsLoaded());

  // `found` holds it still.
  Library again;
  EXPECT_EQ(libraries::FindLoaded(Built(u"hollow.dll"), &again), kSuccess);
  again.Free();
  Library needy;
  EXPECT_EQ(libraries::Load(Built(u"needy\\needy.dll"), libraries::kDefaultSearch, &needy),
            kSuccess);
  needy.Free();
  found.Free();
  EXPECT_EQ(find(), Expected(kModNotFound));
  EXPECT_EQ(libraries::FindLoaded(Built(u"hollow.dll"), &again), kModNotFound);
}

TEST_F(LibrariesConformance, TellsWhenWhatALibraryNeedsHasNoSuchSymbol) {
  if (RunsUnderWine()) {
    GTEST_SKIP() << "Wine puts something in the place of a symbol that is missing";
  }
  Library bare;
  ASSERT_EQ(libraries::Load(Built(u"bare\\hollow.dll"), libraries::kDefaultSearch, &bare),
            kSuccess);
  Library needy;
  EXPECT_EQ(Observe([&] {
              return libraries::Load(Built(u"needy\\needy.dll"), libraries::kDefaultSearch, &needy);
            }),
            Expected(kProcNotFound));
}

TEST_F(LibrariesConformance, FindsOnlyTheLibrarysOwnSymbols) {
  Library hollow;
  Library needy;
  ASSERT_EQ(libraries::Load(Built(u"hollow.dll"), libraries::kDefaultSearch, &hollow), kSuccess);
  ASSERT_EQ(libraries::Load(Built(u"needy\\needy.dll"), libraries::kDefaultSearch, &needy),
            kSuccess);
  SetLastError(kUntouched);
  const auto needyNumber =
      reinterpret_cast<int* (*)()>(libraries::FindSymbol(needy, "NeedyNumber"));
  ASSERT_NE(needyNumber, nullptr);
  EXPECT_EQ(*needyNumber(), 42);
  EXPECT_NE(libraries::FindSymbol(hollow, "hollowNumber"), nullptr);
  EXPECT_EQ(LastError(), kUntouched);
  for (const char* name : {"hollowNumber", "needyNumber", "malloc", ""}) {
    SetLastError(kUntouched);
    EXPECT_EQ(libraries::FindSymbol(needy, name), nullptr) << name;
    EXPECT_EQ(LastError(), kProcNotFound) << name;
  }
}

TEST_F(LibrariesConformance, TellsWhatHoldsAnAddress) {
  Library library;
  ASSERT_EQ(libraries::Load(Built(u"hollow.dll"), libraries::kDefaultSearch, &library), kSuccess);
  const auto* number =
      reinterpret_cast<const void*>(libraries::FindSymbol(library, "hollowNumber"));
  SetLastError(kUntouched);
  EXPECT_EQ(Utf8(libraries::FileNameOf(number)), Utf8(Built(u"hollow.dll")));
  EXPECT_EQ(Utf8(libraries::FileNameOf(&kUntouched)), Utf8(paths::ModuleFileName()));
  EXPECT_EQ(Utf8(libraries::FileNameOf(libraries::ProgramModule())), Utf8(paths::ModuleFileName()));
  EXPECT_EQ(LastError(), kUntouched);
  const int onTheStack = 0;
  EXPECT_EQ(Utf8(libraries::FileNameOf(&onTheStack)), "");
  EXPECT_EQ(LastError(), kModNotFound);
}

TEST_F(LibrariesConformance, NarrowSearchLeavesTheLastErrorAlone) {
  SetLastError(kUntouched);
  libraries::NarrowSearch();
  EXPECT_TRUE(libraries::CanNarrowSearch());
  EXPECT_EQ(LastError(), kUntouched);
}

}  // namespace
}  // namespace platform::test
