// The expansion of file names behind HostExpandFileName, with its choices open.
#pragma once

#pragma GCC visibility push(hidden)

enum class LinkHandling {
    follow, // follow symbolic links; a folder gets a "/" at its end
    keep,   // leave links alone and append nothing: for whoever examines or removes the link itself
};

// As HostUnixExpandFileName and HostExpandFileName.
void hostUnixExpand(const char* src, char* dst, unsigned size, LinkHandling links);
void hostExpand(const char* src, char* dst, unsigned size, LinkHandling links);

// Reads $KS_AutoMountPrefix anew. Without it the variable is read on first use, thread-safely.
void hostReadAutoMountPrefix();

#pragma GCC visibility pop
