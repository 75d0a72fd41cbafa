package com.quarlex.music.utils;

import static org.junit.Assert.assertEquals;
import static org.junit.Assert.assertTrue;

import java.io.File;
import java.io.IOException;
import java.nio.ByteBuffer;
import java.nio.ByteOrder;
import javax.sound.sampled.AudioFormat;
import javax.sound.sampled.AudioInputStream;
import javax.sound.sampled.AudioSystem;
import javax.sound.sampled.UnsupportedAudioFileException;
import org.junit.Test;

/**
 * A whole session on a real file, heard through the host's WAV sink: the
 * fixture's left channel is a ramp of its own frame index, so the output
 * tells which way and how fast the record turned.
 */
public class RotavoxSessionTest {
    private static final int RATE = 44100;

    private static void hold(long ms, Runnable call) throws InterruptedException {
        long end = System.nanoTime() + ms * 1000000;
        while (System.nanoTime() < end) {
            call.run();
            Thread.sleep(100);  // the application's own pace, not a wait for the engine
        }
    }

    @Test
    public void forwardRewindSeekStop() throws Exception {
        File wav = new File(System.getenv("ROTAVOX_TEST_OUT"), "session.wav");
        Rotavox r = new Rotavox();
        assertEquals(0, r.setDataSource(RotavoxBindingTest.fixture("wav16.wav")));
        assertEquals(0, r.prepare());

        hold(1200, () -> r.forward(1000));
        long afterForward = r.getPositionUs();
        hold(800, () -> r.rewind(1000));
        long afterRewind = r.getPositionUs();
        assertEquals(0, r.seekTo(2000));
        hold(400, () -> r.forward(1000));
        assertEquals(0, r.setPlaybackRatePermille(0));
        r.reset();
        r.release();  // the track is gone: the WAV is complete

        assertTrue("forward moved the position: " + afterForward, afterForward > 500000);
        assertTrue("rewind moved it back: " + afterRewind, afterRewind < afterForward);

        int[] p = rampPositions(wav);
        int up = 0, down = 0, lastUpRunStart = -1, run = 0;
        for (int i = 1; i < p.length; i++) {
            int d = (p[i] - p[i - 1] + 65536) % 65536;
            if (d == 1) {
                if (run <= 0) {
                    run = 0;
                    lastUpRunStart = i - 1;
                }
                run++;
                up++;
            } else if (d == 65535) {
                run = run >= 0 ? -1 : run - 1;
                down++;
            }
        }
        assertTrue("forward audio at normal speed: " + up + " frames", up > RATE * 6 / 10);
        assertTrue("backward audio at normal speed: " + down + " frames", down > RATE * 3 / 10);
        // After the seek the record plays forward again from about 2 s
        // (the cache lands on its 300 ms grid, within 100 ms).
        int resumeFrame = p[lastUpRunStart];
        int lo = (int) (1.6 * RATE) % 65536, hi = (int) (2.1 * RATE) % 65536;
        assertTrue("resumed near 2 s: ramp value " + resumeFrame, resumeFrame >= lo && resumeFrame <= hi);
    }

    // The ramp position (frame index modulo 65536) of every output frame.
    static int[] rampPositions(File wav) throws IOException, UnsupportedAudioFileException {
        try (AudioInputStream in = AudioSystem.getAudioInputStream(wav)) {
            AudioFormat f = in.getFormat();
            assertEquals(AudioFormat.Encoding.PCM_SIGNED, f.getEncoding());
            assertEquals(RATE, (int) f.getSampleRate());
            assertEquals(16, f.getSampleSizeInBits());
            assertEquals(2, f.getChannels());
            assertTrue("little-endian", !f.isBigEndian());
            ByteBuffer b = ByteBuffer.wrap(in.readAllBytes()).order(ByteOrder.LITTLE_ENDIAN);
            int[] p = new int[b.limit() / 4];
            for (int i = 0; i < p.length; i++) {
                p[i] = b.getShort(4 * i) + 32768;
            }
            return p;
        }
    }
}
