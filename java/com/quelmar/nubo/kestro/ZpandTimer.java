package com.quelmar.nubo.kestro;

import java.util.concurrent.ScheduledFuture;
import java.util.concurrent.ScheduledThreadPoolExecutor;
import java.util.concurrent.TimeUnit;

/**
 * The operating-system timer the library's timers run on: one one-shot
 * timer. {@link #start(long)} arms it (re-arming replaces a timer still
 * pending), {@link #stop()} cancels it, and when it fires the native
 * {@code active} runs on this class's own timer thread.
 *
 * <p>Call {@link #doInit()} once after the library is loaded and before
 * the engine starts; call {@link #doDestroy()} only after the engine has
 * stopped its timers.
 */
public final class ZpandTimer {
    private static final ScheduledThreadPoolExecutor TIMER =
            new ScheduledThreadPoolExecutor(
                    1,
                    r -> {
                        Thread t = new Thread(r, "ZpandTimer");
                        t.setDaemon(true);
                        return t;
                    });

    static {
        TIMER.setRemoveOnCancelPolicy(true);
    }

    private static ScheduledFuture<?> pending;

    private ZpandTimer() {}

    /** Hands this class to the library, which then starts and stops it. */
    public static native void doInit();

    /** Makes the library forget this class and its expiry callback. */
    public static native void doDestroy();

    /** Expiry, into the library. */
    private static native void active();

    /** Arms the timer to fire once after the given milliseconds. */
    public static synchronized void start(long ms) {
        if (pending != null) pending.cancel(false);
        pending = TIMER.schedule(ZpandTimer::fire, Math.max(0L, ms), TimeUnit.MILLISECONDS);
    }

    /** Cancels the pending timer, if any. */
    public static synchronized void stop() {
        if (pending != null) {
            pending.cancel(false);
            pending = null;
        }
    }

    /** Whether a timer is armed and has not fired yet. */
    public static synchronized boolean isArmed() {
        return pending != null;
    }

    private static void fire() {
        synchronized (ZpandTimer.class) {
            pending = null;
        }
        active();
    }
}
