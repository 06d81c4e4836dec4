package com.kestrune.tmqkci;

/**
 * Tells that a value cannot be converted between Java and the server without loss.
 *
 * @since 3.1.3
 */
public class KciConversionException extends KciException {
    private static final long serialVersionUID = 1L;

    /**
     * Makes an exception with a text.
     *
     * @param message which value cannot become what
     */
    public KciConversionException(String message) {
        super(message);
    }
}
