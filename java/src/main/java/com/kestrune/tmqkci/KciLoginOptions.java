package com.kestrune.tmqkci;

import java.util.Arrays;

/**
 * What a login needs. The arrays with passwords are kept as they are given, and overwritten when the login has ended,
 * whether it succeeded or not; an object of this class serves one login.
 *
 * <p>The native method takes passwords as Java strings, which cannot be overwritten: a copy lives until it is
 * collected.
 */
public final class KciLoginOptions {
    private String server;
    private String networkService;
    private String user;
    private char[] password;
    private String hostUser;
    private char[] hostPassword;

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
        password = secret;
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
        hostPassword = secret;
        return this;
    }

    /** Calls the native login, and overwrites the passwords. */
    int login(TmqKciException report) {
        try {
            return TmqKciInterface._login(server, networkService, user, text(password), hostUser, text(hostPassword),
                    report);
        } finally {
            wipe();
        }
    }

    /** Overwrites the passwords. */
    void wipe() {
        for (char[] secret : new char[][] {password, hostPassword}) {
            if (secret != null) {
                Arrays.fill(secret, '\0');
            }
        }
        password = null;
        hostPassword = null;
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
