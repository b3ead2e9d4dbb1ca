package com.quelmar.nubo.kestro.test;

/**
 * A timer class whose start and stop throw, to bind in place of ZpandTimer:
 * the library must clear what they throw and go on.
 */
public final class ThrowingTimer {
    private static int calls;

    private ThrowingTimer() {}

    public static void start(long len) {
        calls++;
        throw new IllegalStateException("start " + len);
    }

    public static void stop() {
        calls++;
        throw new IllegalStateException("stop");
    }

    /** How many times start and stop were called. */
    public static int calls() {
        return calls;
    }
}
