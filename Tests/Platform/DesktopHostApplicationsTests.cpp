#include <gtest/gtest.h>

#include "Platform/Linux/DesktopHostApplications.h"
#include "Support/TemporaryFolder.h"

namespace ostrel {
namespace {

namespace fs = std::filesystem;

std::string entry(const std::string& exec,
                  const std::string& more = "Categories=System;TerminalEmulator;\n") {
  return "[Desktop Entry]\nType=Application\nExec=" + exec + "\n" + more;
}

TEST(DesktopEntry, NamesTheProgramOfGraphicalHosts) {
  const auto program = [](const std::string& bytes) {
    return DesktopEntry::hostProgram(bytes).value_or("(none)");
  };
  EXPECT_EQ(program(entry("kitty %U")), "kitty");
  EXPECT_EQ(program(entry("\"/opt/My Editor/run\" %F", "Categories=IDE\n")), "/opt/My Editor/run");
  EXPECT_EQ(program(entry("env -u X A=b /usr/bin/x-editor", "Categories=TextEditor;\n")),
            "/usr/bin/x-editor");
  EXPECT_EQ(program(entry("python3 -u /usr/share/t/t.py")), "/usr/share/t/t.py");
  EXPECT_EQ(program("[Desktop Action new]\nExec=other\n" + entry("a") + "[Desktop Action new]\nExec=b\n"),
            "a");
  for (const auto& other :
       {entry("mail", "Categories=Office;\n"), entry("vim", "Categories=TextEditor;\nTerminal=true\n"),
        entry("x", "Categories=IDE;\nHidden=true\n"), entry("sh -c 'x'"), entry("env A=b"), entry(""),
        entry("python3 -m spyder"), entry("python3"), entry("java Main"),
        std::string("[Desktop Entry]\nType=Link\nCategories=IDE\nExec=x"), std::string("\xff[[=")}) {
    EXPECT_EQ(program(other), "(none)") << other;
  }
}

TEST(DesktopHostApplications, RecogniseAHostByItsProgramItsInstallationAndItsHelpers) {
  TemporaryFolder folder;
  const auto put = [&](const fs::path& name) { return folder.write(name, "").string(); };
  const std::string terminal = put("bin/terminal");
  put("bin/gnome-terminal");
  const std::string editor = put("data/.local/share/editor/bin/edit");
  const std::string script = put("scripts/term.py");
  fs::create_symlink(editor, folder.path() / "bin/edit");
  put("home/.local/bin/tool");
  folder.write("data/applications/a.desktop", entry("terminal"));
  folder.write("data/applications/sub/b.desktop", entry("gnome-terminal --x"));
  folder.write("data/applications/c.desktop", entry("edit %F", "Categories=IDE;\n"));
  folder.write("data/applications/d.desktop", entry("python3 " + script));
  folder.write("data/applications/e.desktop", entry("/snap/bin/code"));
  folder.write("data/applications/f.desktop", entry("not-installed"));
  folder.write("data/applications/g.desktop", entry(folder.path() / "home/.local/bin/tool"));
  const std::string bin = (folder.path() / "bin").string();
  DesktopHostApplications hosts({folder.path() / "none", folder.path() / "data"}, "relative:" + bin);
  const auto host = [&](const std::string& executable, std::vector<std::string> arguments = {}) {
    return hosts.hostOf(executable, arguments).value_or("(none)");
  };
  EXPECT_EQ(host(terminal), terminal);
  EXPECT_EQ(host("/usr/libexec/gnome-terminal-server"), bin + "/gnome-terminal");
  EXPECT_EQ(host((folder.path() / "data/.local/share/editor/lib/real").string()), bin + "/edit");
  EXPECT_EQ(host("/usr/bin/python3.11", {"python3", "-u", script}), script);
  const std::string own = (folder.path() / "data/.local/share/editor/jbr/bin").string();
  EXPECT_EQ(host(own + "/java"), bin + "/edit");
  EXPECT_EQ(host(own + "/python3"), "(none)");
  EXPECT_EQ(host("/snap/code/123/usr/share/code/code"), "/snap/bin/code");
  EXPECT_EQ(host((folder.path() / "home/.local/bin/tool").string()),
            (folder.path() / "home/.local/bin/tool").string());
  for (const auto& other : {bin + "/bash", (folder.path() / "home/.local/lib/x").string(),
                            std::string("/usr/bin/python3.11"), std::string("terminal"), std::string(),
                            std::string("/snap/other/1/x"), std::string("/usr/bin/not-installed")}) {
    EXPECT_EQ(host(other), "(none)") << other;
  }
}

}  // namespace
}  // namespace ostrel
