// The process-wide objects of the window layer.
#pragma once

class QGuiApplication;

namespace orvane {

class OrvaneSailfishWindow;

// Made on demand by ensureApplication and kept for the life of the process.
extern QGuiApplication* gApplication;
// The window whose keys and buttons ot_updateKeyboardState reads.
extern OrvaneSailfishWindow* gActiveWindow;

// Runs before any window is made, before each pump and before any orientation is asked.
void ensureApplication();

}  // namespace orvane
