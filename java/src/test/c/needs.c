/* A library that needs another. */
int absentFunction(void);
int needingFunction(void);

int needingFunction(void) {
    return absentFunction();
}
