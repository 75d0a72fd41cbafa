package com.quarlex.music.utils;

import java.util.concurrent.locks.ReentrantReadWriteLock;

/**
 * A turntable-style player for one audio file, backed by the native engine
 * librotavox.
 *
 * <h2>Driving it</h2>
 * Playback is driven by speed: {@link #forward(int)}, {@link #rewind(int)}
 * and {@link #setPlaybackRatePermille(int)} take a signed speed in thousandths
 * of normal speed (1000 = normal, negative = backward), limited to
 * {@link #MAX_PERMILLE} either way (a larger value is clamped, not refused).
 * A non-zero speed starts playback; a speed of zero through
 * {@link #setPlaybackRatePermille(int)}, and every {@link #seekTo(long)},
 * pause it, while {@code forward(0)} and {@code rewind(0)} keep the output
 * running with the record held still. While playing, call a speed or seek
 * operation at least every 500 ms, as a hand on a record would; the engine
 * logs a warning ("no call from app in last 500ms") when the application
 * falls silent.
 *
 * <h2>Seeking</h2>
 * {@link #seekTo(long)} takes milliseconds and always pauses: resume with a
 * speed call. A position at or past the end of the file is ignored (the
 * call returns {@link #OK} and nothing changes, playback included). The
 * engine keeps a window of decoded audio around the play position and
 * moves on a grid of 300 ms: a seek closer than 300 ms to the current
 * position does not move it. A seek outside the window restarts decoding a
 * little before the target (4 s by default, the third figure of the system
 * property {@code media.rotavox.cache-params}), so a seek far away takes a
 * moment before its audio plays.
 *
 * <h2>At the end of the data</h2>
 * Nothing stops by itself and no end-of-stream status is returned: at the
 * end (or, playing backward, the start) of the file the engine keeps
 * handing out the last decoded block of audio, and {@link #getPositionUs()}
 * stands still on that block's time. An application that wants playback to
 * end there compares the position with the file's duration and pauses with
 * {@code setPlaybackRatePermille(0)}, or reverses.
 *
 * <h2>Statuses</h2>
 * Methods return the engine's status: {@link #OK} on success, a negative
 * platform status otherwise ({@link #statusName(int)} names it);
 * {@link #NO_PLAYER} after {@link #release()}. Once setting the data source,
 * preparing or starting the output has failed, every operation returns that
 * same status until {@link #reset()}. Methods may be called from any thread.
 */
public class Rotavox implements AutoCloseable {
    static {
        loadNativeLibrary();
    }

    // The library on java.library.path (Debian's JNI directory is on it by
    // default), else where this jar's manifest says it sits relative to the
    // jar ("Rotavox-Native-Library", space-separated candidates), so that
    // an install under any prefix, and the build tree, need no flags.
    private static void loadNativeLibrary() {
        try {
            System.loadLibrary("rotavox");
            return;
        } catch (UnsatisfiedLinkError e) {
            try {
                java.net.URL location = Rotavox.class.getProtectionDomain().getCodeSource().getLocation();
                java.io.File jar = new java.io.File(location.toURI());
                try (java.util.jar.JarFile j = new java.util.jar.JarFile(jar)) {
                    String candidates = j.getManifest().getMainAttributes().getValue("Rotavox-Native-Library");
                    for (String c : candidates == null ? new String[0] : candidates.trim().split("\\s+")) {
                        java.io.File lib = new java.io.File(jar.getParentFile(), c);
                        if (lib.isFile()) {
                            System.load(lib.getCanonicalPath());
                            return;
                        }
                    }
                }
            } catch (Exception ignored) {
                // Not from a jar, or a jar without the attribute: the
                // original error says what was looked for.
            }
            throw e;
        }
    }

    /** Maximum speed either way, in thousandths of normal speed. */
    public static final int MAX_PERMILLE = 10000;

    /** Success. */
    public static final int OK = 0;
    /** The native player is gone: {@link #release()} was called. */
    public static final int NO_PLAYER = -1;
    /** A failure the engine has no more precise code for (0x80000000). */
    public static final int UNKNOWN_ERROR = 0x80000000;
    /** Out of memory. */
    public static final int NO_MEMORY = -12;
    /** Not initialised: the engine has no data source or no decoder yet. */
    public static final int NO_INIT = -19;
    /** An argument the engine or platform refused. */
    public static final int BAD_VALUE = -22;
    /** The operation is not possible in the current state. */
    public static final int INVALID_OPERATION = -38;
    /** Reading the file failed. */
    public static final int ERROR_IO = -1004;
    /** The file is damaged. */
    public static final int ERROR_MALFORMED = -1007;
    /** The file's format or codec is not supported. */
    public static final int ERROR_UNSUPPORTED = -1010;
    /** The end of the data was reached. */
    public static final int ERROR_END_OF_STREAM = -1011;

    /**
     * The name of a status for messages, with its number: "NO_INIT (-19)".
     *
     * @param status a value returned by one of this class's methods
     * @return the constant's name followed by the number in brackets, or
     *     "status (N)" for a value without a name here
     */
    public static String statusName(int status) {
        String name;
        switch (status) {
            case OK: name = "OK"; break;
            case NO_PLAYER: name = "NO_PLAYER"; break;
            case UNKNOWN_ERROR: name = "UNKNOWN_ERROR"; break;
            case NO_MEMORY: name = "NO_MEMORY"; break;
            case NO_INIT: name = "NO_INIT"; break;
            case BAD_VALUE: name = "BAD_VALUE"; break;
            case INVALID_OPERATION: name = "INVALID_OPERATION"; break;
            case ERROR_IO: name = "ERROR_IO"; break;
            case ERROR_MALFORMED: name = "ERROR_MALFORMED"; break;
            case ERROR_UNSUPPORTED: name = "ERROR_UNSUPPORTED"; break;
            case ERROR_END_OF_STREAM: name = "ERROR_END_OF_STREAM"; break;
            default: name = "status"; break;
        }
        return name + " (" + status + ")";
    }

    /** Address of the native player, 0 when there is none. Owned by the engine. */
    private long mNativeData64;

    // The engine does not guard its teardown against a call in flight on
    // another thread, and it reads its source and output without a lock in
    // getPosition and in the pause of a zero rate: a reset, a new data source
    // or a zero rate beside another call could free or restart what those
    // read.  So every call takes this lock exclusively, except the position
    // query, which only reads and shares it.
    private final ReentrantReadWriteLock mReleaseLock = new ReentrantReadWriteLock();

    /** Creates the native player; give it a file with {@link #setDataSource(String)}. */
    public Rotavox() {
        nativeSetup();
    }

    /**
     * Opens a file by path and selects its (last) audio track. Mono and
     * stereo tracks up to 192 kHz play.
     *
     * @param path the file, not null
     * @return {@link #OK}; {@link #UNKNOWN_ERROR} or another negative status
     *     when the file cannot be opened or has no playable audio track (the
     *     player then refuses every call with it until {@link #reset()});
     *     {@link #NO_PLAYER} after release
     * @throws IllegalArgumentException when path is null
     */
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

    /**
     * Prepares synchronously: builds the decoder and the audio output, and
     * returns when they are ready. A speed call prepares by itself when
     * this was not done.
     *
     * @return {@link #OK}; the status of the step that failed otherwise
     *     ({@link #UNKNOWN_ERROR} for a track that is neither mono nor
     *     stereo, or a preparation already under way);
     *     {@link #NO_PLAYER} after release
     */
    public int prepare() {
        mReleaseLock.writeLock().lock();
        try {
            return nativePrepare();
        } finally {
            mReleaseLock.writeLock().unlock();
        }
    }

    /**
     * Prepares on the engine's own thread and returns at once.
     *
     * @return {@link #OK} when the preparation was started; a negative
     *     status when it could not be; {@link #NO_PLAYER} after release
     */
    public int prepareAsync() {
        mReleaseLock.writeLock().lock();
        try {
            return nativePrepareAsync();
        } finally {
            mReleaseLock.writeLock().unlock();
        }
    }

    /**
     * Moves to a position and pauses (see "Seeking" above): resume with a
     * speed call. A position at or past the end is ignored; one within
     * 300 ms of the current position does not move it.
     *
     * @param positionMs the position in milliseconds; negative means 0
     * @return {@link #OK}, also for an ignored position; the player's
     *     failure status after a failed preparation; {@link #NO_PLAYER}
     *     after release
     */
    public int seekTo(long positionMs) {
        mReleaseLock.writeLock().lock();
        try {
            return nativeSetPosition(positionMs);
        } finally {
            mReleaseLock.writeLock().unlock();
        }
    }

    /**
     * Plays forward at a speed; starts playback (preparing if needed) when
     * the speed is not 0, and holds the record still, output running, at 0.
     *
     * @param permille speed in thousandths of normal speed, clamped to
     *     -{@link #MAX_PERMILLE}..{@link #MAX_PERMILLE}; a negative value
     *     gives a negative speed with the direction set to forward
     * @return {@link #OK}; the player's failure status after a failed
     *     preparation; {@link #NO_PLAYER} after release
     */
    public int forward(int permille) {
        mReleaseLock.writeLock().lock();
        try {
            return nativeForward(permille);
        } finally {
            mReleaseLock.writeLock().unlock();
        }
    }

    /**
     * Plays backward at a speed: {@code rewind(1000)} is normal speed
     * backward. Starts playback when the speed is not 0; holds the record
     * still, output running, at 0.
     *
     * @param permille speed in thousandths of normal speed; above
     *     {@link #MAX_PERMILLE} it is clamped, and a negative value gives a
     *     positive speed with the direction set to backward
     * @return {@link #OK}; the player's failure status after a failed
     *     preparation; {@link #NO_PLAYER} after release
     */
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
     * {@link #forward(int)} or {@link #rewind(int)}; 0 pauses playback.
     *
     * @param permille speed in thousandths of normal speed, negative
     *     backward, clamped to -{@link #MAX_PERMILLE}..{@link #MAX_PERMILLE}
     * @return {@link #OK}; the player's failure status after a failed
     *     preparation; {@link #NO_PLAYER} after release
     */
    public int setPlaybackRatePermille(int permille) {
        mReleaseLock.writeLock().lock();
        try {
            return nativeSetPlaybackRatePermille(permille);
        } finally {
            mReleaseLock.writeLock().unlock();
        }
    }

    /**
     * Stops playback and forgets the data source and any failure; the
     * player can be given a new file. Does nothing after release.
     */
    public void reset() {
        mReleaseLock.writeLock().lock();
        try {
            nativeReset();
        } finally {
            mReleaseLock.writeLock().unlock();
        }
    }

    /**
     * The play position: the time in the file of the block of decoded
     * audio being played, so it moves in steps of one block (tens of
     * milliseconds) and stands still at the end of the data.
     *
     * @return microseconds (note: {@link #seekTo(long)} takes milliseconds);
     *     -1 before any position is known, and after release
     */
    public long getPositionUs() {
        mReleaseLock.readLock().lock();
        try {
            return nativeGetPosition();
        } finally {
            mReleaseLock.readLock().unlock();
        }
    }

    /**
     * Stops playback and frees the native player; later calls return
     * {@link #NO_PLAYER}. Safe to call more than once.
     */
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

    /** The same as {@link #release()}, for try-with-resources. */
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
