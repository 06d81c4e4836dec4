// What host initialisation records. Each is also obtained on first use, thread-safely and without HostInit's side
// effects; HostInit records them anew.
#pragma once

void hostStartClocks();
void hostReadAutoMountPrefix();
