package com.quarlex.music.demo;

import com.quarlex.music.utils.Rotavox;

import java.awt.BasicStroke;
import java.awt.Color;
import java.awt.Font;
import java.awt.Graphics2D;
import java.awt.RenderingHints;
import java.awt.image.BufferedImage;
import java.io.DataInputStream;
import java.io.File;
import java.io.FileInputStream;
import java.io.IOException;
import java.io.InputStream;
import java.nio.ByteBuffer;
import java.nio.ByteOrder;
import java.util.ArrayList;
import java.util.List;
import javax.imageio.ImageIO;

/**
 * The turntable routine of `make demo`: start, speed up, slow down, a
 * backward scratch, a seek and a stop, all through the application class.
 *
 * <pre>java -Djava.library.path=build/lib -jar rotavox-demo.jar FILE [WAV PNG]</pre>
 *
 * When WAV and PNG are given (the engine then writes its output to WAV), the
 * demo draws the play position over time and the waveform it produced.
 */
public final class RotavoxDemo {
    private static final long TICK_MS = 100;

    private final Rotavox mPlayer = new Rotavox();
    private final long mStartNs = System.nanoTime();
    private final List<long[]> mPositions = new ArrayList<>();  // {ms since start, position µs}
    private final List<String[]> mSteps = new ArrayList<>();    // {ms since start, label}

    private interface Speed {
        int apply();
    }

    public static void main(String[] args) throws Exception {
        if (args.length != 1 && args.length != 3) {
            System.err.println("usage: RotavoxDemo FILE [OUT.wav OUT.png]");
            System.exit(2);
        }
        RotavoxDemo demo = new RotavoxDemo();
        int status = demo.run(args[0]);
        if (status == 0 && args.length == 3) {
            File wav = new File(args[1]);
            if (wav.length() > 0) {
                demo.plot(wav, new File(args[2]));
            } else {
                System.out.println("rotavox-demo: the sound went to the audio device; no "
                        + wav + " to draw");
            }
        }
        System.exit(status == 0 ? 0 : 1);
    }

    private long nowMs() {
        return (System.nanoTime() - mStartNs) / 1000000;
    }

    private int run(String path) throws InterruptedException {
        File file = new File(path);
        if (!file.isFile()) {
            System.err.println("rotavox-demo: no such file: " + path);
            return 1;
        }
        System.out.println("rotavox-demo: playing " + path);
        int err = mPlayer.setDataSource(path);
        if (err != 0) {
            System.err.println("rotavox-demo: cannot open " + path + " (status " + err + ")");
            return err;
        }
        err = mPlayer.prepare();
        if (err != 0) {
            System.err.println("rotavox-demo: cannot prepare " + path + " (status " + err + ")");
            return err;
        }

        step("start at normal speed", 2500, () -> mPlayer.forward(1000));
        step("speed up to 1.8x", 2000, () -> mPlayer.forward(1800));
        step("slow down to 0.6x", 2000, () -> mPlayer.forward(600));
        step("back to normal", 1500, () -> mPlayer.forward(1000));
        for (int i = 0; i < 3; i++) {
            step("scratch: backward 1.5x", 350, () -> mPlayer.rewind(1500));
            step("scratch: forward 1.5x", 350, () -> mPlayer.forward(1500));
        }
        step("play backward at normal speed", 2000, () -> mPlayer.rewind(1000));
        step("seek to 10 s (pauses)", 300, () -> mPlayer.seekTo(10000));
        step("resume at normal speed", 2500, () -> mPlayer.forward(1000));
        step("stop", 300, () -> mPlayer.setPlaybackRatePermille(0));

        System.out.printf("rotavox-demo: done, position %.3f s%n", mPlayer.getPositionUs() / 1e6);
        mPlayer.release();
        return 0;
    }

    // Applies a speed and holds it for a while, re-applying it every tick as
    // a hand on the record would; the engine expects a call at least every
    // 500 ms while playing.
    private void step(String label, long durationMs, Speed speed) throws InterruptedException {
        int err = speed.apply();
        mSteps.add(new String[] {Long.toString(nowMs()), label});
        System.out.printf("%7.2f s  %-32s position %8.3f s%s%n", nowMs() / 1000.0, label,
                mPlayer.getPositionUs() / 1e6, err == 0 ? "" : "  (status " + err + ")");
        long end = nowMs() + durationMs;
        while (nowMs() < end) {
            Thread.sleep(TICK_MS);
            long pos = mPlayer.getPositionUs();
            mPositions.add(new long[] {nowMs(), pos});
            if (!label.startsWith("seek") && !label.equals("stop")) {
                speed.apply();
            }
        }
        System.out.printf("%7.2f s  %-32s position %8.3f s%n", nowMs() / 1000.0, "",
                mPlayer.getPositionUs() / 1e6);
    }

    // --- Picture ---------------------------------------------------------------

    private void plot(File wav, File png) throws IOException {
        short[] left = readWavLeft(wav);
        int w = 1200, h = 600, pad = 50;
        BufferedImage img = new BufferedImage(w, h, BufferedImage.TYPE_INT_RGB);
        Graphics2D g = img.createGraphics();
        g.setRenderingHint(RenderingHints.KEY_ANTIALIASING, RenderingHints.VALUE_ANTIALIAS_ON);
        g.setColor(Color.WHITE);
        g.fillRect(0, 0, w, h);
        g.setFont(new Font(Font.SANS_SERIF, Font.PLAIN, 12));

        // Top: play position (seconds of the track) over wall-clock time.
        int top = pad, plotH = (h - 3 * pad) / 2, plotW = w - 2 * pad;
        long maxT = Math.max(1, mPositions.isEmpty() ? 1 : mPositions.get(mPositions.size() - 1)[0]);
        long maxPos = 1;
        for (long[] p : mPositions) maxPos = Math.max(maxPos, p[1]);
        g.setColor(Color.BLACK);
        g.drawRect(pad, top, plotW, plotH);
        g.drawString("play position (s) over time (s)", pad, top - 8);
        g.setColor(new Color(200, 200, 200));
        for (String[] s : mSteps) {
            int x = pad + (int) (Long.parseLong(s[0]) * plotW / maxT);
            g.drawLine(x, top, x, top + plotH);
        }
        g.setColor(new Color(20, 90, 200));
        g.setStroke(new BasicStroke(2f));
        int px = -1, py = -1;
        for (long[] p : mPositions) {
            int x = pad + (int) (p[0] * plotW / maxT);
            int y = top + plotH - (int) (Math.max(0, p[1]) * plotH / maxPos);
            if (px >= 0) g.drawLine(px, py, x, y);
            px = x;
            py = y;
        }
        g.setColor(Color.BLACK);
        g.drawString(String.format("%.1f s", maxPos / 1e6), 4, top + 10);
        g.drawString(String.format("%.1f s", maxT / 1e3), w - pad - 30, top + plotH + 14);

        // Bottom: the waveform the engine delivered (left channel).
        int wtop = top + plotH + pad;
        g.setStroke(new BasicStroke(1f));
        g.drawRect(pad, wtop, plotW, plotH);
        g.drawString("output waveform, left channel (" + left.length + " frames)", pad, wtop - 8);
        g.setColor(new Color(30, 140, 60));
        int mid = wtop + plotH / 2;
        for (int x = 0; x < plotW && left.length > 0; x++) {
            int from = (int) ((long) x * left.length / plotW);
            int to = Math.max(from + 1, (int) ((long) (x + 1) * left.length / plotW));
            int lo = 0, hi = 0;
            for (int i = from; i < to && i < left.length; i++) {
                lo = Math.min(lo, left[i]);
                hi = Math.max(hi, left[i]);
            }
            g.drawLine(pad + x, mid - hi * (plotH / 2) / 32768, pad + x, mid - lo * (plotH / 2) / 32768);
        }
        g.dispose();
        ImageIO.write(img, "png", png);
        System.out.println("rotavox-demo: wrote " + wav + " and " + png);
    }

    // A small reader for the 16-bit PCM WAV the host's WAV sink writes.
    private static short[] readWavLeft(File wav) throws IOException {
        try (InputStream in = new FileInputStream(wav)) {
            DataInputStream data = new DataInputStream(in);
            byte[] header = new byte[12];
            data.readFully(header);
            int channels = 2;
            while (true) {
                byte[] chunk = new byte[8];
                data.readFully(chunk);
                ByteBuffer b = ByteBuffer.wrap(chunk).order(ByteOrder.LITTLE_ENDIAN);
                String id = new String(chunk, 0, 4, "US-ASCII");
                int size = b.getInt(4);
                if (id.equals("fmt ")) {
                    byte[] fmt = new byte[size];
                    data.readFully(fmt);
                    channels = ByteBuffer.wrap(fmt).order(ByteOrder.LITTLE_ENDIAN).getShort(2);
                } else if (id.equals("data")) {
                    byte[] pcm = data.readAllBytes();
                    int frames = Math.min(pcm.length, size < 0 ? pcm.length : size) / (2 * channels);
                    ByteBuffer p = ByteBuffer.wrap(pcm).order(ByteOrder.LITTLE_ENDIAN);
                    short[] left = new short[frames];
                    for (int i = 0; i < frames; i++) left[i] = p.getShort(i * 2 * channels);
                    return left;
                } else {
                    data.skipBytes(size);
                }
            }
        }
    }
}
