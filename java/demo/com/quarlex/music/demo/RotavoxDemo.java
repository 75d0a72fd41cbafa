package com.quarlex.music.demo;

import com.quarlex.music.utils.Rotavox;

import java.io.File;
import java.io.IOException;
import java.nio.charset.StandardCharsets;
import java.nio.file.Files;
import org.json.JSONArray;
import org.json.JSONException;
import org.json.JSONObject;

/**
 * The turntable routine of `make demo`: start, speed up, slow down, a
 * backward scratch, a seek and a stop, all through the application class.
 *
 * <pre>java -jar rotavox-demo.jar FILE [OUT.json]</pre>
 *
 * With OUT.json it records what it did for rotavox-plot: the play position
 * over time and each step with its speed (the time axis is the wall clock,
 * which is output time for a player that plays in real time).
 */
public final class RotavoxDemo {
    private static final long TICK_MS = 100;

    private final Rotavox mPlayer = new Rotavox();
    private final long mStartNs = System.nanoTime();
    private final JSONArray mPositions = new JSONArray();  // [s since start, position s]
    private final JSONArray mSteps = new JSONArray();      // {t, label, note, speed}

    private interface Speed {
        int apply();
    }

    public static void main(String[] args) throws Exception {
        if (args.length != 1 && args.length != 2) {
            System.err.println("usage: RotavoxDemo FILE [OUT.json]");
            System.exit(2);
        }
        RotavoxDemo demo = new RotavoxDemo();
        int status = demo.run(args[0]);
        if (status == 0 && args.length == 2) {
            demo.writePlotData(args[0], new File(args[1]));
        }
        System.exit(status == 0 ? 0 : 1);
    }

    private long nowMs() {
        return (System.nanoTime() - mStartNs) / 1000000;
    }

    private int run(String path) throws InterruptedException, JSONException {
        File file = new File(path);
        if (!file.isFile()) {
            System.err.println("rotavox-demo: no such file: " + path);
            return 1;
        }
        System.out.println("rotavox-demo: playing " + path);
        int err = mPlayer.setDataSource(path);
        if (err != 0) {
            System.err.println("rotavox-demo: cannot open " + path + ": " + Rotavox.statusName(err));
            return err;
        }
        err = mPlayer.prepare();
        if (err != 0) {
            System.err.println("rotavox-demo: cannot prepare " + path + ": " + Rotavox.statusName(err));
            return err;
        }

        step("start at normal speed", 2500, 1000, () -> mPlayer.forward(1000));
        step("speed up to 1.8x", 2000, 1800, () -> mPlayer.forward(1800));
        step("slow down to 0.6x", 2000, 600, () -> mPlayer.forward(600));
        step("back to normal", 1500, 1000, () -> mPlayer.forward(1000));
        for (int i = 0; i < 3; i++) {
            step("scratch: backward 1.5x", 350, -1500, () -> mPlayer.rewind(1500));
            step("scratch: forward 1.5x", 350, 1500, () -> mPlayer.forward(1500));
        }
        step("play backward at normal speed", 2000, -1000, () -> mPlayer.rewind(1000));
        step("seek to 10 s (pauses)", 300, 0, () -> mPlayer.seekTo(10000));
        step("resume at normal speed", 2500, 1000, () -> mPlayer.forward(1000));
        step("stop", 300, 0, () -> mPlayer.setPlaybackRatePermille(0));

        System.out.printf("rotavox-demo: done, position %.3f s%n", mPlayer.getPositionUs() / 1e6);
        mPlayer.release();
        return 0;
    }

    // Applies a speed and holds it for a while, re-applying it every tick as
    // a hand on the record would; the engine expects a call at least every
    // 500 ms while playing.
    private void step(String label, long durationMs, int permille, Speed speed)
            throws InterruptedException, JSONException {
        int err = speed.apply();
        mSteps.put(new JSONObject().put("t", nowMs() / 1000.0).put("label", label)
                .put("note", err == 0 ? "" : Rotavox.statusName(err)).put("speed", permille));
        System.out.printf("%7.2f s  %-32s position %8.3f s%s%n", nowMs() / 1000.0, label,
                mPlayer.getPositionUs() / 1e6, err == 0 ? "" : "  (" + Rotavox.statusName(err) + ")");
        long end = nowMs() + durationMs;
        while (nowMs() < end) {
            Thread.sleep(TICK_MS);
            long pos = mPlayer.getPositionUs();
            mPositions.put(new JSONArray().put(nowMs() / 1000.0).put(pos / 1e6));
            if (!label.startsWith("seek") && !label.equals("stop")) {
                speed.apply();
            }
        }
        System.out.printf("%7.2f s  %-32s position %8.3f s%n", nowMs() / 1000.0, "",
                mPlayer.getPositionUs() / 1e6);
    }

    // What rotavox-plot draws: the steps as labelled markers, the speed
    // they set, the position over time.
    private void writePlotData(String path, File out) throws IOException, JSONException {
        JSONObject data = new JSONObject()
                .put("title", "make demo: the turntable routine on " + new File(path).getName())
                .put("output_s", nowMs() / 1000.0)
                // The output, and so the WAV, starts with the first step.
                .put("wav_offset_s", mSteps.length() > 0 ? mSteps.getJSONObject(0).getDouble("t") : 0)
                .put("positions", mPositions)
                .put("operations", mSteps);
        Files.write(out.toPath(), data.toString(1).getBytes(StandardCharsets.UTF_8));
    }
}
