package com.kestrune.tmqkci;

/** Stands before the product's class of this name on the class path: loads the library given, times that. */
public final class TmqKciInterface {
    private static native int _initialize(int useLinked, String appName, int bufSize, int preloadSize, int debugFlag,
            long[] kernelOops, TmqKciException errReport);

    /** Prints the nanoseconds that loading the library {@code args[0]} and its initialization take. */
    public static void main(String[] args) {
        TmqKciException error = new TmqKciException();
        long[] kernelOops = new long[16];
        long start = System.nanoTime();
        System.load(args[0]);
        int status = _initialize(1, "bench", 1 << 16, 1024, 0, kernelOops, error);
        long end = System.nanoTime();
        if (status != 32) {
            throw new IllegalStateException(error.getMessage());
        }
        System.out.println(end - start);
    }
}
