// The stand-in's command line: Herdr's own commands as far as our programs use them, and a few of its own,
// marked with a star.
//
//   [--session NAME] COMMAND
//
//   api schema --json            session list --json
//   server                       server live-handoff
//   * session start [NAME]       session stop [NAME | --all]
//   agent list                   pane send-text PANE TEXT
//   pane read PANE [--source visible|recent] [--lines N]
//   pane close PANE              * pane move PANE: gives the pane another terminal id
//   * pane open [--cwd FOLDER] [-- PROGRAM ARGUMENT...]
//   * pane report [--pane P] [--agent A] [--status S] [--title T] [--session-ref R] [--session-kind path|id]
//   integration status           integration install TARGET
//
// The session is "default" where none is named, and inside a pane that pane's. `pane report` without `--pane`
// means the pane that it runs in.
#pragma once

#include <string>
#include <vector>

namespace ostrel::standin {

// The exit status.
int runCommandLine(const std::vector<std::string>& words);

}  // namespace ostrel::standin
