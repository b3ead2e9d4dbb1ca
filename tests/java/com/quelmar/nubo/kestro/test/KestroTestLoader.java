package com.quelmar.nubo.kestro.test;

/**
 * Loads the library from a class on the application class path, as an
 * application's own class does, so its JNI_OnLoad binds through the
 * application's class loader.
 */
public final class KestroTestLoader {
    private KestroTestLoader() {}

    public static void load(String path) {
        System.load(path);
    }

    /** The name of the calling thread. */
    public static String threadName() {
        return Thread.currentThread().getName();
    }
}
