package com.quarlex.music.utils;

import static org.junit.Assert.assertEquals;
import static org.junit.Assert.assertNotEquals;

import java.io.File;
import org.junit.Test;

/**
 * The binding's edge cases through a real JVM. A released object and a file
 * without audio are the native tests' business (Rotavox_jni_test, Rotavox_test);
 * what stays here needs the JVM: its strings, its exceptions, its objects.
 */
public class RotavoxBindingTest {
    private static final int NO_INIT = -19;

    static String fixture(String name) {
        return new File(System.getenv("ROTAVOX_FIXTURES"), name).getPath();
    }

    @Test
    public void setupTwiceKeepsOnePlayer() {
        Rotavox r = new Rotavox();
        // Unprepared: the seek is refused but the position is remembered.
        assertEquals(NO_INIT, r.nativeSetPosition(2000));
        // A second setup must not replace the player: the position it
        // remembered survives.
        assertEquals(0, r.nativeSetup());
        assertEquals(2000000L, r.nativeGetPosition());
        r.release();
    }

    @Test
    public void aMissingFileIsAStatusNotACrash() {
        Rotavox r = new Rotavox();
        assertNotEquals(0, r.setDataSource("/nonexistent/file.flac"));
        // Nothing was opened, so preparation has nothing to do and the
        // player stays without a decoder: transport is refused.
        assertEquals(0, r.prepare());
        assertEquals(NO_INIT, r.forward(1000));
        assertEquals(-1L, r.getPositionUs());
        r.release();
    }

    @Test(expected = IllegalArgumentException.class)
    public void aNullPathIsRefusedBeforeTheEngine() {
        Rotavox r = new Rotavox();
        try {
            r.setDataSource(null);
        } finally {
            r.release();
        }
    }
}
