#pragma once

// Whether $KESTRUNE_CHILD_DEBUG asks this process to wait for a debugger.
bool hostDebuggerWaitIsWanted();
