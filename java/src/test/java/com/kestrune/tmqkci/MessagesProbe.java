package com.kestrune.tmqkci;

/** Prints a text and a report, in a process of its own. */
final class MessagesProbe {
    private MessagesProbe() {
    }

    public static void main(String[] args) {
        TmqKciException error = new TmqKciException("message");
        error.category = 3613;
        error.number = 2010;
        for (int i = 0; i < 3; ++i) {
            System.out.println(KciMessages.text(3613, 2010));
            System.out.print(KciMessages.report(error));
        }
    }
}
