// A program's or a library's counters.
#pragma once

struct Counted {
    void (*write)(void);
    void (*reset)(void);
    struct Counted* next;
};
void countedEnter(struct Counted* counted);
void countedLeave(struct Counted* counted);
