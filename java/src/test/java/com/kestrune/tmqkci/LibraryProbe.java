package com.kestrune.tmqkci;

/** Tells whether the library can be loaded, in a process of its own. */
final class LibraryProbe {
    private LibraryProbe() {
    }

    public static void main(String[] args) {
        if (TmqKciLibrary.isAvailable()) {
            TmqKciInterface._KCSIdetach(new TmqKciException());
            System.out.println("loaded " + TmqKciLibrary.location());
            return;
        }
        try {
            TmqKciInterface._KCSIdetach(new TmqKciException());
            System.out.println("not loaded, but usable");
        } catch (UnsatisfiedLinkError error) {
            System.out.println(error.getMessage());
        }
    }
}
