package com.quarlex.music.utils;

import static org.junit.Assert.assertEquals;
import static org.junit.Assert.assertTrue;

import java.util.ArrayList;
import java.util.List;
import java.util.Random;
import java.util.concurrent.atomic.AtomicReference;
import org.junit.Test;

/** Calls from several Java threads at once, on one player and on several. */
public class RotavoxThreadsTest {
    private static void runAll(List<Thread> threads, AtomicReference<Throwable> failure)
            throws InterruptedException {
        for (Thread t : threads) t.start();
        for (Thread t : threads) t.join();
        if (failure.get() != null) throw new AssertionError(failure.get());
    }

    @Test
    public void manyThreadsDriveOnePlayer() throws Exception {
        Rotavox r = new Rotavox();
        assertEquals(0, r.setDataSource(RotavoxBindingTest.fixture("flac16.flac")));
        assertEquals(0, r.prepare());
        AtomicReference<Throwable> failure = new AtomicReference<>();
        List<Thread> threads = new ArrayList<>();
        for (int t = 0; t < 4; t++) {
            final long seed = 1234 + t;
            threads.add(new Thread(() -> {
                Random rnd = new Random(seed);
                try {
                    for (int i = 0; i < 150; i++) {
                        int status;
                        switch (rnd.nextInt(5)) {
                            case 0: status = r.forward(rnd.nextInt(20001) - 10000); break;
                            case 1: status = r.rewind(rnd.nextInt(20001) - 10000); break;
                            case 2: status = r.seekTo(rnd.nextInt(3500)); break;
                            case 3: status = r.nativeSetPlaybackRatePermille(rnd.nextInt(4000) + 1); break;
                            default: status = 0; r.getPositionUs(); break;
                        }
                        assertEquals(0, status);
                        long pos = r.getPositionUs();
                        assertTrue("position in the file: " + pos, pos >= 0 && pos <= 3100000);
                    }
                } catch (Throwable e) {
                    failure.compareAndSet(null, e);
                }
            }));
        }
        runAll(threads, failure);
        r.reset();
        r.release();
    }

    @Test
    public void severalPlayersAtOnce() throws Exception {
        AtomicReference<Throwable> failure = new AtomicReference<>();
        List<Thread> threads = new ArrayList<>();
        String[] files = {"flac16.flac", "wav16.wav", "mp3.mp3", "vorbis.ogg"};
        for (String f : files) {
            threads.add(new Thread(() -> {
                try (Rotavox r = new Rotavox()) {
                    assertEquals(0, r.setDataSource(RotavoxBindingTest.fixture(f)));
                    // Transport is refused (NO_INIT) until a preparation
                    // has finished, so prepare synchronously here.
                    assertEquals(0, r.prepare());
                    for (int i = 0; i < 20; i++) {
                        assertEquals(0, r.forward(500 + 100 * i));
                        Thread.sleep(20);
                        assertEquals(0, r.rewind(800));
                    }
                    r.reset();
                } catch (Throwable e) {
                    failure.compareAndSet(null, e);
                }
            }));
        }
        runAll(threads, failure);
    }
}
