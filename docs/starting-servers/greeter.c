/*
 * A server that HostForkServer can start: it listens at a Unix socket, says that it is ready, serves one request and
 * ends. It needs nothing of libtmqkci313.so.
 *
 * usage: greeter SOCKET
 */
#include <errno.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

/* A socket that clients can connect to from now on, or -1 with errno set. */
static int listenAt(const char* path) {
    struct sockaddr_un address = {.sun_family = AF_UNIX};
    if (strlen(path) >= sizeof address.sun_path) {
        errno = ENAMETOOLONG;
        return -1;
    }
    strcpy(address.sun_path, path);
    int listener = socket(AF_UNIX, SOCK_STREAM, 0);
    if (listener == -1)
        return -1;
    unlink(path); /* left by a server that was killed */
    if (bind(listener, (struct sockaddr*)&address, sizeof address) == -1 || listen(listener, 5) == -1)
        return -1;
    return listener;
}

/* One byte to the pipe whose number the starter gave; a server that was started by hand has none. */
static void reportReady(void) {
    const char* number = getenv("KESTRUNE_SERVER_PIPE");
    if (number == NULL)
        return;
    int readiness = atoi(number);
    if (write(readiness, "", 1) != 1)
        perror("greeter: cannot report that it is ready");
    close(readiness);
}

/* Answers one line with another. */
static void serve(int client) {
    FILE* stream = fdopen(client, "r+");
    char name[100];
    if (stream == NULL)
        return;
    if (fgets(name, sizeof name, stream) != NULL) {
        name[strcspn(name, "\n")] = '\0';
        fseek(stream, 0, SEEK_CUR); /* between reading and writing */
        fprintf(stream, "Hello, %s.\n", name);
    }
    fclose(stream);
}

int main(int argc, char** argv) {
    if (argc != 2) {
        fprintf(stderr, "usage: greeter SOCKET\n");
        return 2;
    }
    const char* path = argv[1];
    int listener = listenAt(path);
    if (listener == -1) {
        /* Ending before the byte is the way to fail: HostForkServer sees the pipe's end. */
        fprintf(stderr, "greeter: cannot listen at %s: %s\n", path, strerror(errno));
        return 1;
    }
    reportReady();

    alarm(60); /* nobody may come */
    int client = accept(listener, NULL, NULL);
    if (client != -1)
        serve(client);
    unlink(path);
    return 0;
}
