package com.kestrune.tmqkci;

/**
 * Tells that a commit was refused, because another session has committed what this transaction has changed as well.
 * Nothing was committed, and the transaction goes on with its changes: {@link KciSession#abort} and do the work again,
 * as {@link KciSession#inTransaction} does.
 *
 * @since 3.1.3
 */
public class KciConflictException extends TmqKciException {
    private static final long serialVersionUID = 1L;

    KciConflictException(KciSession session) {
        super("the commit was refused: another session has committed a change to something that this one has changed");
        from(session, null);
    }

    @Override
    public boolean isRetryable() {
        return true;
    }
}
