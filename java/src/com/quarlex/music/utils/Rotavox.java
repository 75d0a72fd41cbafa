package com.quarlex.music.utils;

import java.util.concurrent.locks.ReentrantReadWriteLock;

/**
 * A turntable-style player for one audio file, backed by the native engine
 * librotavox.
 *
 * <p>Playback is driven by speed: {@link #forward(int)}, {@link #rewind(int)}
 * and {@link #setPlaybackRatePermille(int)} take a signed speed in thousandths
 * of normal speed (1000 = normal, negative = backward), limited to ten times
 * normal speed either way. A non-zero speed starts playback; a speed of zero
 * through {@link #setPlaybackRatePermille(int)}, and every {@link #seekTo(long)},
 * pause it. While playing, call a speed or seek operation at least every
 * 500 ms; the engine logs a warning when the application falls silent.
 *
 * <p>Methods return the engine's status: 0 on success, a negative platform
 * status otherwise (-1 when the player was released). They may be called
 * from any thread. {@link #release()} frees the native player; calls after it
 * are refused with -1.
 */
public class Rotavox implements AutoCloseable {
    static {
        System.loadLibrary("rotavox");
    }

    /** Maximum speed either way, in thousandths of normal speed. */
    public static final int MAX_PERMILLE = 10000;

    /** Address of the native player, 0 when there is none. Owned by the engine. */
    private long mNativeData64;

    // The engine does not guard its teardown against a call in flight on
    // another thread, and it reads its source and output without a lock in
    // getPosition and in the pause of a zero rate: a reset, a new data source
    // or a zero rate beside another call could free or restart what those
    // read.  So every call takes this lock exclusively, except the position
    // query, which only reads and shares it.
    private final ReentrantReadWriteLock mReleaseLock = new ReentrantReadWriteLock();

    public Rotavox() {
        nativeSetup();
    }

    /** Opens a file by path and selects its audio track. */
    public int setDataSource(String path) {
        if (path == null) {
            throw new IllegalArgumentException("path must not be null");
        }
        mReleaseLock.writeLock().lock();
        try {
            return nativeSetDataSource(path);
        } finally {
            mReleaseLock.writeLock().unlock();
        }
    }

    /** Prepares synchronously: builds the decoder and the audio output. */
    public int prepare() {
        mReleaseLock.writeLock().lock();
        try {
            return nativePrepare();
        } finally {
            mReleaseLock.writeLock().unlock();
        }
    }

    /** Prepares on the engine's own thread and returns at once. */
    public int prepareAsync() {
        mReleaseLock.writeLock().lock();
        try {
            return nativePrepareAsync();
        } finally {
            mReleaseLock.writeLock().unlock();
        }
    }

    /**
     * Moves to a position given in milliseconds (negative means 0) and pauses.
     * A position at or past the end of the track is ignored.
     */
    public int seekTo(long positionMs) {
        mReleaseLock.writeLock().lock();
        try {
            return nativeSetPosition(positionMs);
        } finally {
            mReleaseLock.writeLock().unlock();
        }
    }

    /** Plays forward at the given speed (thousandths); 0 holds the record still. */
    public int forward(int permille) {
        mReleaseLock.writeLock().lock();
        try {
            return nativeForward(permille);
        } finally {
            mReleaseLock.writeLock().unlock();
        }
    }

    /** Plays backward at the given speed (thousandths); 0 holds the record still. */
    public int rewind(int permille) {
        mReleaseLock.writeLock().lock();
        try {
            return nativeRewind(permille);
        } finally {
            mReleaseLock.writeLock().unlock();
        }
    }

    /**
     * Sets a signed speed without changing the direction chosen by
     * {@link #forward(int)} or {@link #rewind(int)}; 0 pauses.
     */
    public int setPlaybackRatePermille(int permille) {
        mReleaseLock.writeLock().lock();
        try {
            return nativeSetPlaybackRatePermille(permille);
        } finally {
            mReleaseLock.writeLock().unlock();
        }
    }

    /** Stops playback and forgets the data source; the player can be reused. */
    public void reset() {
        mReleaseLock.writeLock().lock();
        try {
            nativeReset();
        } finally {
            mReleaseLock.writeLock().unlock();
        }
    }

    /**
     * The play position in microseconds (note: {@link #seekTo(long)} takes
     * milliseconds); -1 before any position is known or after release.
     */
    public long getPositionUs() {
        mReleaseLock.readLock().lock();
        try {
            return nativeGetPosition();
        } finally {
            mReleaseLock.readLock().unlock();
        }
    }

    /** Frees the native player. Safe to call more than once. */
    public void release() {
        mReleaseLock.writeLock().lock();
        try {
            // The native destructor stops the event queue before it resets,
            // dropping a preparation that has not run yet; its reset would
            // then wait for that preparation forever.  A reset first lets a
            // pending preparation see the cancellation and end.
            if (mNativeData64 != 0) {
                nativeReset();
            }
            nativeFinalize();
        } finally {
            mReleaseLock.writeLock().unlock();
        }
    }

    @Override
    public void close() {
        release();
    }

    @SuppressWarnings("deprecation")
    @Override
    protected void finalize() throws Throwable {
        try {
            release();
        } finally {
            super.finalize();
        }
    }

    // Package-private so that tests can drive the binding directly.
    native int nativeSetup();
    native void nativeFinalize();
    native int nativeSetDataSource(String path);
    native int nativePrepare();
    native int nativePrepareAsync();
    native int nativeSetPosition(long positionMs);
    native int nativeForward(int permille);
    native int nativeRewind(int permille);
    native int nativeSetPlaybackRatePermille(int permille);
    native void nativeReset();
    native long nativeGetPosition();
}
