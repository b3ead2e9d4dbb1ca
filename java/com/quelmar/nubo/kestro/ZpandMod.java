package com.quelmar.nubo.kestro;

import java.util.concurrent.ExecutorService;
import java.util.concurrent.Executors;

/**
 * Module message drive. When the library has module messages for tasks
 * that the host drives, it calls {@link #postDrv()}; each call arranges one
 * call of the native {@code driveMsg} on this class's own worker thread,
 * which handles one queued message. Calls run one after another in the
 * order they were asked for.
 *
 * <p>The natives are registered when the library is loaded
 * ({@code System.loadLibrary("kestro_lite")}); load it before the engine
 * starts.
 */
public final class ZpandMod {
    private static final ExecutorService WORKER =
            Executors.newSingleThreadExecutor(
                    r -> {
                        Thread t = new Thread(r, "ZpandMod");
                        t.setDaemon(true);
                        return t;
                    });

    private ZpandMod() {}

    /** Handles one queued module message; registered by the library. */
    private static native void driveMsg();

    /** Asks for one drive on the worker thread; called by the library. */
    public static void postDrv() {
        WORKER.execute(ZpandMod::driveMsg);
    }
}
