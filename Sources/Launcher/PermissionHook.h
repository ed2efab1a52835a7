// Claude Code's permission hook: hands the question on standard input to the running program and prints its
// answer.
#pragma once

// Plays the role to its end and returns the exit status, which is always 0. Nothing on standard output means
// "no decision": Claude Code's own prompt, which is open all the while, then decides as if there were no
// hook. A fixture run asks only a server of its own process id, that is, nobody.
int runHook(bool fixture);
