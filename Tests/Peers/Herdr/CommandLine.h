// The stand-in's command line: Herdr's own commands as far as our programs use them, and a few of its own,
// marked with a star.
//
//   [--session NAME | --machine ID] COMMAND
//
//   api schema --json            session list --json
//   server                       * session start [NAME], session stop [NAME | --all]
//   agent list                   agent prompt PANE TEXT
//   agent send-keys PANE KEY...  agent start NAME --kind K --pane P [--timeout MS] [-- ARGUMENT...]
//   pane read PANE [--source visible|recent] [--lines N]
//   pane send-text PANE TEXT     pane close PANE
//   * pane open [--cwd FOLDER] [-- PROGRAM ARGUMENT...]
//   * pane report [--pane P] [--agent A] [--status S] [--title T] [--session-ref R] [--session-kind path|id]
//   * pane move PANE             gives the pane another terminal id
//   workspace create --cwd FOLDER [--label L] [--no-focus]
//   terminal session control TERMINAL --cols N --rows N
//   integration status           integration install TARGET
//   machine list --json          machine enable|disable|remove ID
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
