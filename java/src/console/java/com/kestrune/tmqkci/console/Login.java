package com.kestrune.tmqkci.console;

import com.kestrune.tmqkci.KciBridge;
import com.kestrune.tmqkci.KciBridgeOptions;
import com.kestrune.tmqkci.KciLoginOptions;
import com.kestrune.tmqkci.KciSession;
import com.kestrune.tmqkci.TmqKciException;

import java.io.IOException;
import java.nio.file.Path;
import java.util.Locale;
import java.util.concurrent.CompletableFuture;
import java.util.concurrent.ExecutionException;
import java.util.concurrent.TimeUnit;
import java.util.concurrent.TimeoutException;

import picocli.CommandLine;
import picocli.CommandLine.Option;
import picocli.CommandLine.ParameterException;
import picocli.CommandLine.ScopeType;

/** Who logs in, and where. The local store needs nothing of it. */
final class Login {
    private static final String LOCAL_VERSION = "local";
    private static final String LOCAL_USER = "guest";
    private static final String EXPRESSION = "3 + 4";
    private static final int LONGEST_TRIAL_SECONDS = 60;

    @Option(scope = ScopeType.INHERIT, names = {"-s", "--server"}, paramLabel = "NAME",
            description = "the server's name")
    private String server;
    @Option(scope = ScopeType.INHERIT, names = {"-n", "--net-service"}, paramLabel = "NAME",
            description = "the service that starts sessions")
    private String netService;
    @Option(scope = ScopeType.INHERIT, names = {"-u", "--user"}, paramLabel = "NAME",
            description = "the database user")
    private String user;
    @Option(scope = ScopeType.INHERIT, names = "--password-file", paramLabel = "FILE",
            description = "a file whose first line is the password; "
            + "otherwise it is taken from TMQKCI_PASSWORD or asked for")
    private Path passwordFile;
    @Option(scope = ScopeType.INHERIT, names = "--host-user", paramLabel = "NAME",
            description = "the user on the server's host")
    private String hostUser;
    @Option(scope = ScopeType.INHERIT, names = "--host-password-file", paramLabel = "FILE",
            description = "the same for that user; otherwise "
            + "TMQKCI_HOST_PASSWORD")
    private Path hostPasswordFile;
    @Option(scope = ScopeType.INHERIT, names = "--rpc",
            description = "use a session process, not sessions inside this program")
    private boolean rpc;

    boolean isRpc() {
        return rpc;
    }

    /** Logs in, evaluates and logs out, with the time that each step takes. It is given up after a while. */
    Finding tryOut(CommandLine command) {
        String subject = "login";
        StringBuffer steps = new StringBuffer();
        CompletableFuture<Finding> trial = new CompletableFuture<>();
        Thread thread = new Thread(() -> {
            try {
                KciBridge.initialize(bridge());
                KciLoginOptions options = options(command);
                long begin = System.nanoTime();
                KciSession session = KciSession.login(options, bridge());
                begin = add(steps, "logged in as " + session, begin);
                session.execute(EXPRESSION);
                begin = add(steps, "evaluated " + EXPRESSION, begin);
                session.close();
                add(steps, "logged out", begin);
                trial.complete(Finding.ok(subject, steps.toString()));
            } catch (TmqKciException error) {
                trial.complete(Finding.failure(subject, steps + Evaluator.line(error), "see whether server, user and "
                        + "password are right, and whether the server runs"));
            } catch (IOException | RuntimeException unfit) {
                trial.complete(Finding.failure(subject, steps + unfit.getMessage(), "give what a login needs: "
                        + "--server, --user and a password; \"tmqkci --help\" tells how"));
            }
        }, subject);
        thread.setDaemon(true);
        thread.start();
        try {
            return trial.get(LONGEST_TRIAL_SECONDS, TimeUnit.SECONDS);
        } catch (InterruptedException | ExecutionException | TimeoutException unended) {
            return Finding.failure(subject, steps + "had not ended after " + LONGEST_TRIAL_SECONDS + " seconds",
                    "see whether the server runs, and whether a firewall drops what is sent to it");
        }
    }

    private static long add(StringBuffer steps, String step, long begin) {
        long now = System.nanoTime();
        steps.append(steps.isEmpty() ? "" : ", ").append(step)
                .append(String.format(Locale.ROOT, " in %.1f ms", (now - begin) / 1e6));
        return now;
    }

    private KciBridgeOptions bridge() {
        return KciBridgeOptions.DEFAULTS.withLinked(!rpc).withApplicationName("tmqkci");
    }

    /** Logs in. Errors of the command line are reported as such; others are the session's. */
    KciSession open(CommandLine command) throws IOException {
        KciBridge.initialize(bridge());
        return KciSession.login(options(command), bridge());
    }

    /** Once the bridge is initialized. */
    private KciLoginOptions options(CommandLine command) throws IOException {
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
        return options;
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
