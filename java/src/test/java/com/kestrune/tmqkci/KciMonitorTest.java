package com.kestrune.tmqkci;

import static org.junit.jupiter.api.Assertions.*;

import java.lang.management.ManagementFactory;
import java.nio.file.Path;
import java.util.List;
import java.util.Map;
import java.util.concurrent.CopyOnWriteArrayList;
import java.util.logging.Level;
import java.util.logging.Logger;

import javax.management.ObjectName;

import jdk.jfr.Recording;
import jdk.jfr.consumer.RecordingFile;

import org.junit.jupiter.api.Test;
import org.junit.jupiter.api.io.TempDir;

/** What is logged, counted and recorded of sessions, and that a Java without modules for it does without. */
class KciMonitorTest {
    private static final String SLOW = "System waitMilliseconds: 60. nil secretive";

    @TempDir
    Path folder;

    /** Uses a session. */
    static final class Probe {
        public static void main(String[] args) {
            try (KciSession session = KciSessionTest.login("local")) {
                System.out.print(session.execute("3 + 4"));
            }
            System.out.print(assertThrows(IllegalStateException.class, KciMonitor::register).getMessage());
        }
    }

    @Test
    void sessionsAreLoggedCountedAndRecorded() throws Exception {
        Logger logger = Logger.getLogger(KciMonitor.LOGGER);
        List<String> logged = new CopyOnWriteArrayList<>();
        logger.setLevel(Level.ALL);
        logger.setFilter(each -> {
            logged.add(each.getLevel() + " " + each.getMessage());
            return false;
        });
        KciMonitor monitor = KciMonitor.instance();
        KciMonitor.register();
        ManagementFactory.getPlatformMBeanServer().setAttribute(new ObjectName(KciMonitor.OBJECT_NAME),
                new javax.management.Attribute("SlowCallMillis", 20));
        String name;
        try (Recording recording = new Recording()) {
            recording.enable("com.kestrune.tmqkci.*");
            recording.start();
            try (KciSession session = KciSessionTest.login("local")) {
                name = session.toString();
                session.execute("3 + 4");
                assertThrows(TmqKciException.class, () -> session.execute(SLOW));
                assertEquals(List.of(1L, 2L, 1L, 1L), List.of(monitor.getOpenSessions(), monitor.getCalls(),
                        monitor.getErrors(), monitor.getSlowCalls()));
            }
            assertThrows(TmqKciException.class, () -> KciSession.login(
                    new KciLoginOptions().server("local").user("guest").password("wrong".toCharArray())));
            recording.stop();
            recording.dump(folder.resolve("events"));
        }
        List<String> events = RecordingFile.readAllEvents(folder.resolve("events")).stream()
                .filter(each -> each.getEventType().getName().startsWith(KciMonitor.LOGGER))
                .map(each -> each.getEventType().getName().substring(KciMonitor.LOGGER.length() + 1) + " "
                        + each.getString("kind") + " " + each.getInt("error")).toList();
        assertEquals(List.of("Login login 0", "Call execute 0", "Call execute 2010", "Login login 4051"), events);
        assertEquals(0, monitor.getOpenSessions());
        assertEquals(1, monitor.getFailedLogins());
        String time = ", [0-9.]+ ms";
        assertLinesMatch(List.of("FINE " + name + " logged in" + time, "WARNING " + name + ": slow call" + time
                + ", error 2010", "FINE " + name + ": the slow call was " + SLOW, "FINE " + name + " logged out" + time,
                "FINE guest on local: the login failed" + time + ", error 4051"), logged);
        KciMonitor.unregister();
    }

    @Test
    void aSmallJavaDoesWithout() throws Exception {
        assertEquals("7this Java has no module java.management", ChildJava.output(ChildJava.JAVA, folder,
                Map.of("KESTRUNE", System.getenv("KESTRUNE")), Probe.class, "--limit-modules=java.base"));
    }
}
