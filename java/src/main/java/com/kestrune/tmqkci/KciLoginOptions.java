package com.kestrune.tmqkci;

import java.time.Duration;
import java.util.Arrays;
import java.util.function.Supplier;

/**
 * What a login needs. The arrays with passwords are kept as they are given, and overwritten when the login has ended,
 * whether it succeeded or not. To log in again with the same object, give the passwords again; or give once what
 * supplies them, which every login asks for arrays of its own.
 *
 * <p>Not thread-safe, but several logins at once may use one object whose passwords are supplied.
 *
 * <p>The native method takes passwords as Java strings, which cannot be overwritten: a copy lives until it is
 * collected.
 *
 * @since 3.1.3
 */
public final class KciLoginOptions {
    private String server;
    private String networkService;
    private String user;
    private Secret password = Secret.NONE;
    private String hostUser;
    private Secret hostPassword = Secret.NONE;
    private long callLimit;

    /** A password, or where it comes from. One that is wiped is neither. */
    private record Secret(char[] given, Supplier<char[]> source, boolean wiped) {
        static final Secret NONE = new Secret(null, null, false);

        /** The characters for one login, or null. */
        char[] take(String what) {
            if (wiped) {
                throw new IllegalStateException(what + " was overwritten by the login before: set it again, or have it "
                        + "supplied to each login");
            }
            return source == null ? given : source.get();
        }

        Secret wipe() {
            if (given == null) {
                return this;
            }
            Arrays.fill(given, '\0');
            return new Secret(null, null, true);
        }
    }

    /** Makes options without anything; server, user and password are required. */
    public KciLoginOptions() {
    }

    /**
     * Sets the server.
     *
     * @param name the server's name
     * @return this
     */
    public KciLoginOptions server(String name) {
        server = name;
        return this;
    }

    /**
     * Sets the service that starts session processes.
     *
     * @param name the service's name, or null
     * @return this
     */
    public KciLoginOptions networkService(String name) {
        networkService = name;
        return this;
    }

    /**
     * Sets the database user.
     *
     * @param name the user's name
     * @return this
     */
    public KciLoginOptions user(String name) {
        user = name;
        return this;
    }

    /**
     * Sets the database user's password.
     *
     * @param secret the password; overwritten by the login
     * @return this
     */
    public KciLoginOptions password(char[] secret) {
        password = new Secret(secret, null, false);
        return this;
    }

    /**
     * Sets what supplies the database user's password. Each login asks it, possibly in several threads at once, and
     * overwrites what it answered.
     *
     * @param source answers a new array each time
     * @return this
     * @since 3.1.3
     */
    public KciLoginOptions passwordFrom(Supplier<char[]> source) {
        password = new Secret(null, source, false);
        return this;
    }

    /**
     * Sets the user on the server's host.
     *
     * @param name the user's name, or null
     * @return this
     */
    public KciLoginOptions hostUser(String name) {
        hostUser = name;
        return this;
    }

    /**
     * Sets the password of the user on the server's host.
     *
     * @param secret the password, or null; overwritten by the login
     * @return this
     */
    public KciLoginOptions hostPassword(char[] secret) {
        hostPassword = new Secret(secret, null, false);
        return this;
    }

    /**
     * Sets what supplies the password of the user on the server's host, as {@link #passwordFrom} does.
     *
     * @param source answers a new array each time
     * @return this
     * @since 3.1.3
     */
    public KciLoginOptions hostPasswordFrom(Supplier<char[]> source) {
        hostPassword = new Secret(null, source, false);
        return this;
    }

    /**
     * Sets how long each method of the session may take, the wait for its turn included. One that takes longer is
     * stopped as by {@link KciSession#interrupt}, and ends with a {@link KciTimeoutException}. The login itself, the
     * logout, and what waits inside native code, such as each slice of a transfer, are not stopped.
     *
     * @param limit the limit, above zero; null, as long as nothing is set, for none
     * @return this
     * @throws IllegalArgumentException if the limit is zero or negative
     * @since 3.1.3
     */
    public KciLoginOptions callTimeout(Duration limit) {
        callLimit = SessionCalls.nanos(limit);
        return this;
    }

    long callLimit() {
        return callLimit;
    }

    /**
     * The passwords of one login, the user's and the host user's: each an array, or null.
     *
     * @throws IllegalStateException if one was overwritten
     */
    char[][] takePasswords() {
        return new char[][] {password.take("the password"), hostPassword.take("the host user's password")};
    }

    /** Calls the native login. */
    int login(char[][] passwords, TmqKciException report) {
        return TmqKciInterface._login(server, networkService, user, text(passwords[0]), hostUser, text(passwords[1]),
                report);
    }

    /** Overwrites the passwords that were given. */
    void wipe() {
        password = password.wipe();
        hostPassword = hostPassword.wipe();
    }

    /** Overwrites the passwords of one login. */
    static void wipe(char[][] passwords) {
        for (char[] secret : passwords) {
            if (secret != null) {
                Arrays.fill(secret, '\0');
            }
        }
    }

    private static String text(char[] secret) {
        return secret == null ? null : new String(secret);
    }

    /** Tells the user and the server; never a password. */
    @Override
    public String toString() {
        return user + " on " + server;
    }
}
