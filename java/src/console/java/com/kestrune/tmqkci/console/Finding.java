package com.kestrune.tmqkci.console;

/**
 * One thing that the doctor looked at.
 *
 * @param grade how it is
 * @param subject what was looked at
 * @param text what was found
 * @param remedy what to do about it, or null
 */
record Finding(Grade grade, String subject, String text, String remedy) {
    enum Grade {
        OK("ok  "), NOTE("note"), WARNING("warn"), FAILURE("FAIL");

        final String mark;

        Grade(String mark) {
            this.mark = mark;
        }
    }

    static Finding ok(String subject, String text) {
        return new Finding(Grade.OK, subject, text, null);
    }

    static Finding note(String subject, String text) {
        return new Finding(Grade.NOTE, subject, text, null);
    }

    static Finding warning(String subject, String text, String remedy) {
        return new Finding(Grade.WARNING, subject, text, remedy);
    }

    static Finding failure(String subject, String text, String remedy) {
        return new Finding(Grade.FAILURE, subject, text, remedy);
    }
}
