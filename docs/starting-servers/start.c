/*
 * Starts a server with HostForkServer, asks it something and waits for its end.
 *
 * usage: start SERVER SOCKET
 */
#include <errmsg.h>
#include <hostprocess.h>

#include <stdio.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

static void ask(const char* path) {
    struct sockaddr_un address = {.sun_family = AF_UNIX};
    char answer[200];
    strncpy(address.sun_path, path, sizeof address.sun_path - 1);
    int server = socket(AF_UNIX, SOCK_STREAM, 0);
    /* The server listens already: it reported that it is ready. */
    if (server == -1 || connect(server, (struct sockaddr*)&address, sizeof address) == -1) {
        perror("start: cannot connect");
        return;
    }
    if (write(server, "world\n", 6) == 6) {
        ssize_t length = read(server, answer, sizeof answer);
        if (length > 0)
            printf("It answers: %.*s", (int)length, answer);
    }
    close(server);
}

int main(int argc, char** argv) {
    char command[1000];
    char message[1000];
    PidType pid;
    int status = 0;
    if (argc != 3) {
        fprintf(stderr, "usage: start SERVER SOCKET\n");
        return 2;
    }

    ErrMsgInit(); /* messages come from $KESTRUNE/sys */
    snprintf(command, sizeof command, "%s %s", argv[1], argv[2]);
    BoolType ready = HostForkServer(command, message, sizeof message, &pid);
    if (ready) {
        printf("The server is ready: process %d.\n", (int)pid);
        ask(argv[2]);
    } else {
        printf("Not started: %s\n", message);
    }

    /* Ready or not, the process is this one's child. 0: there never was one. */
    if (pid != 0 && waitpid(pid, &status, 0) == pid)
        printf("Process %d ended with status %d.\n", (int)pid, WIFEXITED(status) ? WEXITSTATUS(status) : -1);
    return ready ? 0 : 1;
}
