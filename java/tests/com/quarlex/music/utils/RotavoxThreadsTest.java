package com.quarlex.music.utils;

import static org.junit.Assert.assertEquals;
import static org.junit.Assert.assertTrue;

import java.io.File;
import java.io.RandomAccessFile;
import java.nio.file.Files;
import java.nio.file.StandardCopyOption;
import java.util.ArrayList;
import java.util.List;
import java.util.Random;
import java.util.concurrent.atomic.AtomicReference;
import java.util.function.IntSupplier;
import org.junit.Test;

/**
 * Calls from several Java threads at once on one player, and faults under a
 * playing one. Several players at once, each on threads of its own, are the
 * soak's business (tools/rotavox-soak).
 */
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

    private static int timed(String what, IntSupplier call) {
        long start = System.nanoTime();
        int status = call.getAsInt();
        long ms = (System.nanoTime() - start) / 1000000;
        assertTrue(what + " took " + ms + " ms", ms < 2000);
        return status;
    }

    private static void changeFile(File work, String fault, int part) throws Exception {
        if (fault.equals("truncate")) {
            try (RandomAccessFile f = new RandomAccessFile(work, "rw")) {
                f.setLength(part == 0 ? f.length() / 2 : 0);
            }
        } else if (fault.equals("replace") && part == 0) {
            Files.delete(work.toPath());
            Files.copy(new File(RotavoxBindingTest.fixture("flac16.flac")).toPath(), work.toPath());
        } else if (fault.equals("garbage") && part == 0) {
            try (RandomAccessFile f = new RandomAccessFile(work, "rw")) {
                byte[] noise = new byte[4096];
                new Random(7).nextBytes(noise);
                f.seek(f.length() * 45 / 100);
                f.write(noise);
            }
        }
    }

    // The file changes under a playing player (cut to half, then to nothing;
    // deleted and replaced by another format; a burst of garbage in the
    // middle), at 1x, -1x or +-10x; then a reset, a release or a new data
    // source comes from another thread.  Every call returns within 2 s, and
    // the player (or a new one) plays a good file afterwards.
    @Test
    public void faultsWhilePlayingLeaveAPlayerThatAnswers() throws Exception {
        File dir = Files.createTempDirectory("rotavox-faults").toFile();
        File work = new File(dir, "work.m4a");
        // The player's own tests cross every fault with every motion; here
        // each fault, motion and interrupt goes once through the class.
        String[] faults = {"truncate", "replace", "garbage"};
        int[][] motions = {{1000, 1000}, {-1000, -1000}, {10000, -10000}};
        for (int n = 0; n < 3; n++) {
            final String fault = faults[n];
            final int[] motion = motions[n];
            final int interrupt = (n + 1) % 3;
            final String where = fault + ", speeds " + motion[0] + "/" + motion[1]
                    + ", interrupt " + interrupt;
            // The test's cache (see CMakeLists.txt) reaches 1 s ahead.
            Files.copy(new File(RotavoxBindingTest.fixture("aac.m4a")).toPath(),
                       work.toPath(), StandardCopyOption.REPLACE_EXISTING);
            AtomicReference<Rotavox> player = new AtomicReference<>(new Rotavox());
            Rotavox r = player.get();
            assertEquals(where, 0, timed(where, () -> r.setDataSource(work.getPath())));
            assertEquals(where, 0, timed(where, r::prepare));
            assertEquals(where, 0, timed(where, () -> r.seekTo(motion[0] < 0 ? 2500 : motion[0] > 1000 ? 1500 : 0)));
            for (int step = 0; step < 6; step++) {
                if (step == 4) {
                    // Past what a cut file has left: the output waits for data.
                    assertEquals(where, 0, timed(where, () -> r.seekTo(2700)));
                }
                int speed = motion[step % 2];
                assertEquals(where, 0, timed(where, () -> speed < 0 ? r.rewind(-speed)
                                                                    : r.forward(speed)));
                Thread.sleep(150);  // the application's pace
                if (step == 1 || step == 3) changeFile(work, fault, step / 2);
            }
            AtomicReference<Throwable> failure = new AtomicReference<>();
            Thread other = new Thread(() -> {
                try {
                    if (interrupt == 0) {
                        timed(where + ": reset", () -> { r.reset(); return 0; });
                    } else if (interrupt == 1) {
                        timed(where + ": release", () -> { r.release(); return 0; });
                        player.set(new Rotavox());
                    } else {
                        timed(where + ": setDataSource",
                              () -> r.setDataSource(RotavoxBindingTest.fixture("wav16.wav")));
                    }
                } catch (Throwable e) {
                    failure.compareAndSet(null, e);
                }
            });
            other.start();
            timed(where + ": a call beside it", () -> r.forward(1000));
            other.join();
            if (failure.get() != null) throw new AssertionError(failure.get());

            Rotavox p = player.get();
            assertEquals(where, 0, p.setDataSource(RotavoxBindingTest.fixture("flac16.flac")));
            assertEquals(where, 0, p.prepare());
            assertEquals(where, 0, p.forward(1000));
            long deadline = System.nanoTime() + 5000000000L;
            while (p.getPositionUs() <= 0 && System.nanoTime() < deadline) {
                Thread.sleep(20);
            }
            assertTrue(where + ": plays again", p.getPositionUs() > 0);
            p.release();
            r.release();
        }
        Files.deleteIfExists(work.toPath());
        Files.deleteIfExists(dir.toPath());
    }
}
