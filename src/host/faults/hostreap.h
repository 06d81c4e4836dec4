#pragma once

// Takes the status of all children that ended or stopped. Runs in a signal handler.
void hostReapChildren();
