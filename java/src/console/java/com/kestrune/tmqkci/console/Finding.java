package com.kestrune.tmqkci.console;

import java.util.ArrayList;
import java.util.List;

/** One thing that the doctor looked at, with what follows from it. */
final class Finding {
    enum Grade {
        OK("ok  "), NOTE("note"), WARNING("warn"), FAILURE("FAIL");

        final String mark;

        Grade(String mark) {
            this.mark = mark;
        }

        boolean isBad() {
            return this == WARNING || this == FAILURE;
        }
    }

    final Grade grade;
    /** What was looked at. */
    final String subject;
    /** What was found. */
    final String text;
    /** What to do about it, or null. */
    final String remedy;
    /** What would be well but for this. */
    final List<Finding> consequences = new ArrayList<>();
    /** Only who asks for everything wants to read it. */
    final boolean isDetail;

    private Finding(Grade grade, String subject, String text, String remedy, boolean isDetail) {
        this.grade = grade;
        this.subject = subject;
        this.text = text;
        this.remedy = remedy;
        this.isDetail = isDetail;
    }

    static Finding ok(String subject, String text) {
        return new Finding(Grade.OK, subject, text, null, false);
    }

    static Finding note(String subject, String text) {
        return new Finding(Grade.NOTE, subject, text, null, false);
    }

    static Finding detail(String subject, String text) {
        return new Finding(Grade.NOTE, subject, text, null, true);
    }

    static Finding warning(String subject, String text, String remedy) {
        return new Finding(Grade.WARNING, subject, text, remedy, false);
    }

    static Finding failure(String subject, String text, String remedy) {
        return new Finding(Grade.FAILURE, subject, text, remedy, false);
    }

    boolean isFailure() {
        return grade == Grade.FAILURE;
    }
}
