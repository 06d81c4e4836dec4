package com.kestrune.tmqkci.console;

import com.kestrune.tmqkci.KciBridge;
import com.kestrune.tmqkci.KciBridgeOptions;
import com.kestrune.tmqkci.KciLoginOptions;
import com.kestrune.tmqkci.KciSession;

import java.io.IOException;
import java.nio.file.Path;

import picocli.CommandLine;
import picocli.CommandLine.Option;
import picocli.CommandLine.ParameterException;

/** Who logs in, and where. The local store needs nothing of it. */
final class Login {
    private static final String LOCAL_VERSION = "local";
    private static final String LOCAL_USER = "guest";

    @Option(names = {"-s", "--server"}, paramLabel = "NAME", description = "the server's name")
    private String server;
    @Option(names = {"-n", "--net-service"}, paramLabel = "NAME", description = "the service that starts sessions")
    private String netService;
    @Option(names = {"-u", "--user"}, paramLabel = "NAME", description = "the database user")
    private String user;
    @Option(names = "--password-file", paramLabel = "FILE", description = "a file whose first line is the password; "
            + "otherwise it is taken from TMQKCI_PASSWORD or asked for")
    private Path passwordFile;
    @Option(names = "--host-user", paramLabel = "NAME", description = "the user on the server's host")
    private String hostUser;
    @Option(names = "--host-password-file", paramLabel = "FILE", description = "the same for that user; otherwise "
            + "TMQKCI_HOST_PASSWORD")
    private Path hostPasswordFile;
    @Option(names = "--rpc", description = "use a session process, not sessions inside this program")
    private boolean rpc;

    /** Logs in. Errors of the command line are reported as such; others are the session's. */
    KciSession open(CommandLine command) throws IOException {
        KciBridgeOptions bridge = KciBridgeOptions.DEFAULTS.withLinked(!rpc).withApplicationName("tmqkci");
        KciBridge.initialize(bridge);
        boolean local = KciBridge.clientVersion().contains(LOCAL_VERSION);
        KciLoginOptions options = new KciLoginOptions().server(server != null ? server : LOCAL_VERSION)
                .networkService(netService);
        if (local && user == null) {
            options.user(LOCAL_USER).password(LOCAL_USER.toCharArray());
        } else {
            if (user == null || server == null && !local) {
                throw new ParameterException(command, "give --server and --user");
            }
            options.user(user).password(secret(command, passwordFile, "TMQKCI_PASSWORD", "Password of " + user + ": "));
        }
        if (hostUser != null) {
            options.hostUser(hostUser).hostPassword(secret(command, hostPasswordFile, "TMQKCI_HOST_PASSWORD",
                    "Password of " + hostUser + " on the host: "));
        }
        return KciSession.login(options, bridge);
    }

    private static char[] secret(CommandLine command, Path file, String variable, String prompt) throws IOException {
        char[] password;
        try {
            password = Secrets.password(file, variable, prompt);
        } catch (IOException unreadable) {
            throw new ParameterException(command, "cannot read the password file " + file + ": "
                    + Terminals.reason(unreadable));
        }
        if (password == null) {
            throw new ParameterException(command, "no password: name a file with one, set " + variable
                    + ", or run this at a terminal");
        }
        return password;
    }
}
