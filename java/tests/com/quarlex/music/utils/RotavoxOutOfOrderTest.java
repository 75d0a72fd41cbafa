package com.quarlex.music.utils;

import static org.junit.Assert.assertEquals;
import static org.junit.Assert.assertTrue;

import java.io.ByteArrayOutputStream;
import java.io.File;
import java.io.IOException;
import java.io.InputStream;
import java.nio.charset.StandardCharsets;
import java.util.ArrayList;
import java.util.LinkedHashMap;
import java.util.List;
import java.util.Map;
import org.junit.Test;

/**
 * Calls out of the order the class documents: each is answered with a status,
 * never a crash, and the object plays a good file afterwards. A refusal is
 * only a status: the binding adds no line of its own to it. The engine logs
 * to the process's standard error, so the calls run in a child JVM whose
 * output this test reads.
 */
public class RotavoxOutOfOrderTest {
    private static final int NOT_INIT = -1;
    private static final int UNKNOWN_ERROR = 0x80000000;
    private static final int NO_INIT = -19;

    static String fixture(String name) {
        return new File(System.getenv("ROTAVOX_FIXTURES"), name).getPath();
    }

    /** Runs in the child: one section per case, opened by a marker line. */
    public static void main(String[] args) {
        Rotavox r = new Rotavox();
        section("forward before setDataSource");
        answer(r.forward(1000));
        section("seekTo before setDataSource");
        answer(r.seekTo(500));
        section("setPlaybackRatePermille after setDataSource, before prepare");
        r.setDataSource(fixture("flac16.flac"));
        answer(r.setPlaybackRatePermille(500));
        section("prepare without a data source, then forward");
        r.reset();
        answer(r.prepare());
        answer(r.forward(1000));
        section("rewind after reset");
        r.setDataSource(fixture("flac16.flac"));
        r.prepare();
        r.forward(1000);
        r.reset();
        answer(r.rewind(1000));
        section("prepare after a failed prepareAsync");
        r.setDataSource(fixture("six.flac"));
        answer(r.prepareAsync());
        answer(r.prepare());
        section("natives after release");
        Rotavox gone = new Rotavox();
        gone.release();
        answer(gone.nativeForward(1000));
        answer(gone.nativePrepare());
        section("good file afterwards");
        r.reset();
        answer(r.setDataSource(fixture("flac16.flac")));
        answer(r.prepare());
        answer(r.forward(1000));
        r.release();
        section("end");
    }

    private static void section(String name) {
        System.err.println("=== " + name);
        System.err.flush();
    }

    private static void answer(int status) {
        System.err.println("=== answer " + status);
        System.err.flush();
    }

    private static String readAll(InputStream in) throws IOException {
        ByteArrayOutputStream out = new ByteArrayOutputStream();
        in.transferTo(out);
        return out.toString(StandardCharsets.UTF_8);
    }

    @Test
    public void everyOutOfOrderCallIsAStatusAndALogLine() throws Exception {
        String java = new File(System.getProperty("java.home"), "bin/java").getPath();
        ProcessBuilder pb = new ProcessBuilder(java, "-Xcheck:jni",
                "-Djava.library.path=" + System.getProperty("java.library.path"),
                "-cp", System.getProperty("java.class.path"),
                RotavoxOutOfOrderTest.class.getName());
        pb.redirectErrorStream(true);
        Process p = pb.start();
        String output = readAll(p.getInputStream());
        assertEquals(output, 0, p.waitFor());

        // Section name -> answers and engine lines, in order.
        Map<String, List<Integer>> answers = new LinkedHashMap<>();
        Map<String, List<String>> lines = new LinkedHashMap<>();
        String current = null;
        for (String line : output.split("\n")) {
            if (line.startsWith("=== answer ")) {
                answers.get(current).add(Integer.parseInt(line.substring(11).trim()));
            } else if (line.startsWith("=== ")) {
                current = line.substring(4);
                answers.put(current, new ArrayList<>());
                lines.put(current, new ArrayList<>());
            } else if (current != null) {
                lines.get(current).add(line);
            }
        }
        for (Map.Entry<String, List<Integer>> e : answers.entrySet()) {
            System.out.println("| " + e.getKey() + " | " + e.getValue() + " | "
                    + (lines.get(e.getKey()).isEmpty() ? "" : lines.get(e.getKey()).get(0)) + " |");
        }
        assertTrue(output, answers.containsKey("end"));

        expectQuiet(answers, lines, "forward before setDataSource", List.of(NO_INIT));
        expectQuiet(answers, lines, "seekTo before setDataSource", List.of(NO_INIT));
        expectQuiet(answers, lines, "setPlaybackRatePermille after setDataSource, before prepare",
                List.of(NO_INIT));
        expectQuiet(answers, lines, "prepare without a data source, then forward",
                List.of(0, NO_INIT));
        expectQuiet(answers, lines, "rewind after reset", List.of(NO_INIT));
        // A prepare while the asynchronous one is still queued is refused at
        // once; whether the queued one runs (and logs the six channels) before
        // the next reset cancels it depends on the engine's thread.
        expect(answers, lines, "prepare after a failed prepareAsync", List.of(0, UNKNOWN_ERROR),
                null);
        expect(answers, lines, "natives after release", List.of(NOT_INIT, NOT_INIT), "not init!");
        expect(answers, lines, "good file afterwards", List.of(0, 0, 0), null);
    }

    /** The statuses, and not one line from the binding. */
    private static void expectQuiet(Map<String, List<Integer>> answers,
            Map<String, List<String>> lines, String section, List<Integer> statuses) {
        expect(answers, lines, section, statuses, null);
        for (String line : lines.get(section)) {
            assertTrue(section + ": the binding logged \"" + line + "\"",
                    !line.contains("RotavoxJNI"));
        }
    }

    private static void expect(Map<String, List<Integer>> answers, Map<String, List<String>> lines,
            String section, List<Integer> statuses, String logText) {
        assertEquals(section, statuses, answers.get(section));
        if (logText == null) {
            return;
        }
        boolean found = false;
        for (String line : lines.get(section)) {
            found |= line.contains(logText);
        }
        assertTrue(section + ": no line with \"" + logText + "\" in " + lines.get(section), found);
    }
}
