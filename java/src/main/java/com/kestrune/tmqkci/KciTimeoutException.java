package com.kestrune.tmqkci;

/**
 * Ends a call that took longer than its limit: {@link KciLoginOptions#callTimeout}, or that of
 * {@link KciSession#withCallTimeout}.
 *
 * @since 3.1.3
 */
public class KciTimeoutException extends KciInterruptedException {
    private static final long serialVersionUID = 1L;

    KciTimeoutException(String reason, Outcome outcome) {
        super(reason, outcome);
    }
}
