/* A function of a library that is there when its users are linked, and not when they are loaded. */
int absentFunction(void);

int absentFunction(void) {
    return 1;
}
