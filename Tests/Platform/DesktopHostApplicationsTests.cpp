#include <gtest/gtest.h>

#include "Platform/Linux/DesktopHostApplications.h"
#include "Support/TemporaryFolder.h"

namespace ostrel {
namespace {

namespace fs = std::filesystem;
using namespace std::literals;

std::string entry(const std::string& exec,
                  const std::string& more = "Categories=System;TerminalEmulator;\n") {
  return "[Desktop Entry]\nType=Application\nExec=" + exec + "\n" + more;
}

TEST(DesktopEntry, NamesTheProgramOfGraphicalHosts) {
  const auto program = [](const std::string& bytes) {
    return DesktopEntry::hostProgram(bytes).value_or("(none)");
  };
  EXPECT_EQ(program(entry("\"/opt/My Editor/run\" %F", "Categories=IDE\n")), "/opt/My Editor/run");
  EXPECT_EQ(program(entry("env -u X A=b /usr/bin/x-editor", "Categories=TextEditor;\n")),
            "/usr/bin/x-editor");
  EXPECT_EQ(program(entry("python3 -u /usr/share/t/t.py")), "/usr/share/t/t.py");
  EXPECT_EQ(program("[Desktop Action new]\nExec=other\n" + entry("a") + "[Desktop Action new]\nExec=b\n"),
            "a");
  for (const auto& other :
       {entry("mail", "Categories=Office;\n"), entry("vim", "Categories=TextEditor;\nTerminal=true\n"),
        entry("x", "Categories=IDE;\nHidden=true\n"), entry("sh -c 'x'"), entry("env A=b"), entry(""),
        entry("python3 -m spyder"), entry("java Main"),
        std::string("[Desktop Entry]\nType=Link\nCategories=IDE\nExec=x"), std::string("\xff[[=")}) {
    EXPECT_EQ(program(other), "(none)") << other;
  }
}

TEST(DesktopHostApplications, AreCalledAsTheDesktopCallsThem) {
  TemporaryFolder folder;
  const std::string first = folder.write("bin/gnome-terminal", "").string();
  const std::string second = folder.write("bin/plain", "").string();
  folder.write("data/applications/a.desktop",
               entry("gnome-terminal",
                     "Categories=TerminalEmulator;\nName[de]=Konsole\nName = Terminal \n"
                     "[Desktop Action new]\nName=New Window\n"));
  folder.write("data/applications/b.desktop", entry("plain"));
  DesktopHostApplications hosts({folder.path() / "data"}, folder.path() / "bin");
  ASSERT_EQ(hosts.hostOf(first, {}), first);
  EXPECT_EQ(hosts.nameOf(first), "Terminal");
  EXPECT_EQ(hosts.nameOf(second), std::nullopt);
  EXPECT_LE(DesktopEntry::name(entry("x", "Name=" + std::string(9999, 'n')))->size(), 200u);
}

TEST(DesktopHostApplications, RecogniseAHostByItsProgramItsInstallationAndItsHelpers) {
  TemporaryFolder folder;
  const auto put = [&](const fs::path& name) { return folder.write(name, "").string(); };
  const std::string terminal = put("bin/terminal");
  put("bin/gnome-terminal");
  const std::string editor = put("data/.local/share/editor/bin/edit");
  const std::string script = put("scripts/term.py");
  fs::create_symlink(editor, folder.path() / "bin/edit");
  const std::string tool = put("home/.local/bin/tool");
  folder.write("data/applications/a.desktop", entry("terminal"));
  folder.write("data/applications/sub/b.desktop", entry("gnome-terminal --x"));
  folder.write("data/applications/c.desktop", entry("edit %F", "Categories=IDE;\n"));
  folder.write("data/applications/d.desktop", entry("python3 " + script));
  folder.write("data/applications/e.desktop", entry("/snap/bin/code"));
  folder.write("data/applications/f.desktop", entry("not-installed"));
  folder.write("data/applications/g.desktop", entry(tool));
  const std::string bin = (folder.path() / "bin").string();
  DesktopHostApplications hosts({folder.path() / "none", folder.path() / "data"}, "relative:" + bin);
  const std::string own = (folder.path() / "data/.local/share/editor").string();
  const std::pair<std::string, std::string> table[] = {
      {terminal, terminal},
      {"/usr/libexec/gnome-terminal-server", bin + "/gnome-terminal"},
      {own + "/lib/real", bin + "/edit"},
      {own + "/jbr/bin/java", bin + "/edit"},
      {"/snap/code/123/usr/share/code/code", "/snap/bin/code"},
      {tool, tool},
  };
  for (const auto& [executable, host] : table) EXPECT_EQ(hosts.hostOf(executable, {}), host) << executable;
  EXPECT_EQ(hosts.hostOf("/usr/bin/python3.11", {"python3", "-u", script}), script);
  for (const std::string& other : {own + "/jbr/bin/python3", bin + "/bash", "/usr/bin/python3.11"s,
                                   "terminal"s, ""s, "/snap/other/1/x"s, "/usr/bin/not-installed"s})
    EXPECT_EQ(hosts.hostOf(other, {}), std::nullopt) << other;
}

}  // namespace
}  // namespace ostrel
