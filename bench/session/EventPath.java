package com.kestrune.tmqkci;

import jdk.jfr.Recording;

/** What a call pays for the flight recorder's events while nobody records them. */
public final class EventPath {
    /** Volatile: what an event's path reads has to be read each time. */
    private static volatile int calls = 20_000_000;
    private static final int ROUNDS = 5;

    private EventPath() {
    }

    /** Nanoseconds for each call, run by run, during a recording of other events. */
    public static double[] nanosDuringRecording() {
        try (Recording recording = new Recording()) {
            recording.disable("com.kestrune.tmqkci.Call");
            recording.start();
            return nanos();
        }
    }

    /** Nanoseconds for each call, run by run. */
    public static double[] nanos() {
        double[] runs = new double[ROUNDS];
        for (int round = 0; round < ROUNDS; ++round) {
            long begin = System.nanoTime();
            for (int i = 0; i < calls; ++i) {
                FlightEvents.end(FlightEvents.beginCall(), i, "execute", 0);
            }
            runs[round] = (double) (System.nanoTime() - begin) / calls;
        }
        return runs;
    }
}
