// Pictures of every view with made-up agents, light and dark, as PNG files: for the documents, and for a look
// at a change of a view without a desktop. Main thread only.
#pragma once

#include <filesystem>

#include "Platform/Preferences.h"
#include "Runtime/MainLoop.h"

namespace ostrel::snapshots {

// Writes "NAME-light.png" and "NAME-dark.png" for each view into `folder`, which is made where it is missing.
// Needs no display. Throws `Failure`.
void render(const std::filesystem::path& folder, MainLoop& loop, Preferences& preferences);

}  // namespace ostrel::snapshots
