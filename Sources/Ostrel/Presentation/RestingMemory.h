// Gives memory back that a program at rest does not need. Any thread.
//
// Most of what Qt costs is code that runs once, at the start or while a view is made. It stays in the
// process's books for as long as the process lives, although nothing will run it until the pointer comes to
// the handle: perhaps for hours. Given back, it stays in the kernel's cache of the file for as long as nobody
// needs the room, and comes back page by page when it is run.
#pragma once

namespace ostrel::memory {

// Free heap goes back to the kernel; so do the code and constants of every library of the process. Nothing
// that was written to is touched. Takes a few milliseconds, and the code that runs next some more.
void giveBack();

}  // namespace ostrel::memory
