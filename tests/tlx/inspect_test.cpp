#include <gtest/gtest.h>

#include <algorithm>
#include <string>

#include "engine/command_registry.h"
#include "support/utf.h"
#include "tests/tlx/run_tool.h"

namespace {

using tessel::AttributeDescription;
using tessel::AttributeForm;
using tessel::Subject;

// A path that a new command takes must not be missed by those who only read a script.
TEST(InspectDeclarations, CommandsDeclareWhatTheyTouch) {
  constexpr cvn::StringView kFamilies[] = {u"Files",    u"Folders",  u"Registry",
                                           u"Services", u"Programs", u"The product"};
  // Texts that name nothing outside of the script.
  constexpr cvn::StringView kOthers[] = {u"data", u"displayName", u"dllTextArgument", u"password"};
  for (const tessel::CommandFamily* family : tessel::AllFamilies()) {
    const bool isOutside = std::ranges::find(kFamilies, family->title) != std::end(kFamilies);
    for (const tessel::CommandRecord& command : family->commands) {
      const auto attributes = command.description->attributes;
      const std::string name = cvn::WideToUtf8(command.name);
      const bool hasSubject = std::ranges::any_of(
          attributes, [](const auto& attribute) { return attribute.subject != Subject::None; });
      EXPECT_TRUE(!isOutside || hasSubject ||
                  command.description->fixedSubject.subject != Subject::None)
          << name;
      for (const AttributeDescription& attribute : attributes) {
        const bool isFront = std::ranges::find(attributes, attribute.name,
                                               &AttributeDescription::front) != attributes.end();
        EXPECT_TRUE(!isOutside || attribute.form != AttributeForm::Expanded || isFront ||
                    attribute.subject != Subject::None ||
                    std::ranges::find(kOthers, attribute.name) != std::end(kOthers))
            << name << ' ' << cvn::WideToUtf8(attribute.name);
        EXPECT_TRUE(attribute.front.empty() ||
                    std::ranges::find(attributes, attribute.front, &AttributeDescription::name) !=
                        attributes.end())
            << name << ' ' << cvn::WideToUtf8(attribute.name);
      }
    }
  }
}

// What 'tlx inspect' prints of a script, from the first section to that of the commands.
std::string Inspect(const std::string& folder, const std::string& body,
                    const std::string& attributes = "") {
  const std::string file = folder + "/s.xml";
  tlx::test::WriteFile(file,
                       "<p version='1'><header><property name='patchType' value='update'/>"
                       "</header><script" +
                           attributes + ">\n" + body + "</script></p>");
  const tlx::test::ToolResult result = tlx::test::Tlx({"inspect", file});
  EXPECT_EQ(std::to_string(result.exitCode) + result.err, "0");
  const std::size_t start = result.out.find("\n\n") + 2;
  return result.out.substr(start, result.out.find("\nCommands\n") - start);
}

class InspectTest : public tlx::test::FolderTest {};

TEST_F(InspectTest, TellsWhatAScriptMayTouch) {
  const std::string exit = "\nExit codes\n  0         exit 0        line ";
  const struct {
    std::string body;
    std::string expected;
  } rows[] = {
      {"<regWrite root='HKEY_USERS' key='A' value='' type='REG_SZ' data='%d%'/>\n"
       "<regDeleteKey root='HKEY_CURRENT_USER' key='%TEMP%\\%x%'/>\n"
       "<regGetKeys var='x' root='HKEY_USERS' key='A' delim='|'/><exit/>",
       "Registry\n"
       "  change    value    HKEY_USERS\\A\\(Default)        line 2\n"
       "  remove    key      HKEY_CURRENT_USER\\%TEMP%\\%x%  line 3; variable: x; machine: TEMP\n"
       "  read      key      HKEY_USERS\\A                  line 4\n"
       "\nVariables\n"
       "  d                     has to come from /var or the environment, read in line 2\n"
       "  TEMP                  from the machine's environment, unless /var gives it\n"
       "  x                     set in line 4\n" +
           exit + "4\n"},
      {"<fileMove src='a' dest='b' afterReboot='1'/><dirMove src='a' dest='b'/>\n"
       "<fileFind dir='C:\\x\\' pattern='*.%error%' var='v' delim=';'/>\n"
       "<fileDeletePattern path='a&#27;' afterRebootIfFails='true'/><dirMove src='a' dest='b'/>\n"
       "<dirCopyRec src='%%a%%' dest='%ProgramFiles(x86)%'/><xmlSave handle='h' path='b'/>\n"
       "<iniSetValue path='i' section='s' key='k' value='v'/><jsonOpen handle='h' "
       "path='i'/><exit/>",
       "Files and folders\n"
       "  remove    entry    a                    line 2; afterReboot\n"
       "  change    entry    b                    line 2; afterReboot\n"
       "  remove    entry    a                    lines 2, 4\n"
       "  change    entry    b                    lines 2, 4\n"
       "  read      file     C:\\x\\*.%error%       line 3; variable: error\n"
       "  remove    file     a\\x1B                line 4; afterRebootIfFails\n"
       "  read      tree     %%a%%                line 5\n"
       "  change    tree     %ProgramFiles(x86)%  line 5; machine: ProgramFiles(x86)\n"
       "  change    file     b                    line 5\n"
       "  change    file     i                    line 6\n"
       "  read      file     i                    line 6\n"
       "\nVariables\n"
       "  ProgramFiles(x86)     from the machine's environment, unless /var gives it\n"
       "  v                     set in line 3\n"
       "  error                 built in\n" +
           exit + "6\n"},
      {"<processRun path='p' args='%a%'/><processRun path='p'/><processKill name='k'/>\n"
       "<processEntrypoint path='l' entrypoint='f'/><serviceStop name='s'/>\n"
       "<serviceCreate name='s' serviceType='16' startType='2' errorControl='1' path='c /x'/>\n"
       "<fileDownload file='f' url='http://%random%'/><amStop name='c'/><applyHqPolicies/>\n"
       "<processImpersonateUser domain='.' username='u' password='secret'/>"
       "<processRevertToSelf/><exit/>",
       "Files and folders\n"
       "  change    file     f  line 5\n"
       "\nServices\n"
       "  stop      s  line 3\n"
       "  create    s  line 4\n"
       "\nPrograms\n"
       "  run       program  p %a%  line 2; variable: a\n"
       "  run       program  p      line 2\n"
       "  stop      process  k      line 2\n"
       "  run       library  l!f    line 3\n"
       "  register  program  c /x   line 4\n"
       "\nDownloads\n"
       "  read      http://%random%  line 5; variable: random\n"
       "\nComponents of the product\n"
       "  stop      c                                        line 5\n"
       "  change    the policies of the management platform  line 5\n"
       "\nUsers\n"
       "  become    .\\u                 line 6\n"
       "  become    the run's own user  line 6\n"
       "\nVariables\n"
       "  a                     has to come from /var or the environment, read in line 2\n"
       "  random                built in\n" +
           exit + "6\n"},
      // Variables that are asked for, that only look like some, and those in an index.
      {"<test left='%w%' operator='==' right='%%w%%' "
       "type='string'><onTrue><exit/></onTrue></test>\n"
       "<test left='%%q%%' operator='==' right='%q%' type='string'><onFalse><exit code='5'/>"
       "</onFalse></test>\n"
       "<assign var='a[%i%]' value='100% of %a b% %a[%a[%j%]%]%'/><for var='i' value='1' "
       "delim=';'>\n"
       "<assign var='q' value='%os% %a%'/></for><exit code='-5'/><fileCreate path='never'/>",
       "Variables\n"
       "  a                     has to come from /var or the environment, read in line 5\n"
       "  j                     has to come from /var or the environment, read in line 4\n"
       "  w                     may come from /var or the environment, read in line 2\n"
       "  a[]                   set in line 4: 100% of %a b% %a[%a[%j%]%]%\n"
       "  i                     set in line 4\n"
       "  q                     may come from /var or the environment, else set in line 5: %os% "
       "%a%\n"
       "  os                    built in\n"
       "\nExit codes\n"
       "  -5        exit -5       line 5\n"
       "  0         exit 0        line 2\n"
       "  -5        exit 5        line 3\n"},
      // What is refused is told all the same.
      {"<exit/><fileCreate path='there'/><nope/><goto target=''/>",
       "The runner refuses this script\n"
       "  line 2, column 34: there is no command 'nope'\n"
       "\nFiles and folders\n"
       "  create    file     there  line 2\n" +
           exit + "2\n"},
      {"<fileCreate path='f'/>",
       "Files and folders\n"
       "  create    file     f  line 2\n"
       "\nExit codes\n"
       "  -1        it may end without an 'exit'\n"},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(Inspect(folder_.string(), row.body), row.expected);
  }
  EXPECT_EQ(Inspect(folder_.string(), "<exit/>", " log='%l%.txt'"),
            "Files and folders\n"
            "  change    file     %l%.txt  line 1; variable: l\n"
            "\nVariables\n"
            "  l                     has to come from /var or the environment, read in line 1\n" +
                exit + "2\n");
}

// The walk takes a time that grows with the script.
TEST_F(InspectTest, HostileTextsAreNoTrouble) {
  std::string open;
  std::string close;
  std::string many;
  for (int at = 0; at < 100'000; ++at) {
    open += "%a[";
    close += "]%";
    many += "%a" + std::to_string(at) + "%% %";
  }
  for (const std::string& text : {open + close, open, many}) {
    EXPECT_NE(Inspect(folder_.string(), "<fileCreate path='" + text + "'/>").find("create"),
              std::string::npos);
  }
}

}  // namespace
