import java.io.RandomAccessFile;
import java.nio.MappedByteBuffer;
import java.nio.channels.FileChannel;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.List;
import java.util.concurrent.Callable;
import java.util.concurrent.atomic.AtomicInteger;
import java.util.stream.Stream;

/** A virtual machine with the fault handler installed; the second argument says what it does. */
public final class Faults {
    static native void install();
    static native int segvCount();
    static native void faultInLibrary();
    static native void faultInForeignCode();
    static native void faultInTwoThreads();
    static native void postponeExits();
    static native boolean isTermPending();
    static native void keepSigChld();

    private int field = 1;
    private static volatile Faults nothing;

    public static void main(String[] args) throws Exception {
        System.load(args[0]);
        if (args[1].equals("children")) {
            children(1); // the virtual machine resets SIGCHLD before its first child
            keepSigChld();
        }
        install();
        int argument = args.length > 2 ? Integer.parseInt(args[2]) : 0;
        switch (args[1]) {
            case "healthy" -> healthy(argument);
            case "children" -> System.out.println("children: " + children(60));
            case "library" -> faultInLibrary();
            case "foreign" -> faultInForeignCode();
            case "two" -> faultInTwoThreads();
            case "postponed", "signal" -> waitForSignal(argument, args[1].equals("postponed"));
            default -> throw new IllegalArgumentException(args[1]);
        }
        System.out.println("done");
    }

    /** Postponing, it does what an application does that wants its shutdown hooks to run. */
    private static void waitForSignal(int sig, boolean postponing) throws Exception {
        if (postponing)
            postponeExits();
        Runtime.getRuntime().addShutdownHook(new Thread(() -> System.out.println("shutdown hook")));
        new ProcessBuilder("/bin/sh", "-c", "sleep 0.2; kill -" + sig + " " + ProcessHandle.current().pid()).start();
        for (int i = 0; i < 200; ++i) {
            Thread.sleep(10);
            if (postponing && isTermPending())
                System.exit(0);
        }
    }

    private static void healthy(int checks) throws Exception {
        System.out.println("null checks: " + (nullChecks(checks) == 8 * checks));
        System.out.println("faults passed on: " + (segvCount() >= 7 * checks));
        System.out.println("stack overflow: " + caught(StackOverflowError.class, () -> depth(0)));
        System.out.println("division: " + caught(ArithmeticException.class, () -> 1 / (nothing == null ? 0 : 1)));
        System.out.println("truncated file: " + caught(InternalError.class, Faults::truncatedFile));
        System.out.println("children: " + children(20));
    }

    private static int nullChecks(int checks) throws InterruptedException {
        AtomicInteger caught = new AtomicInteger();
        List<Thread> threads = Stream.generate(() -> new Thread(() -> {
            for (int n = 0; n < checks; ++n) {
                try {
                    nothing.field++;
                } catch (NullPointerException e) {
                    caught.incrementAndGet();
                }
            }
        })).limit(8).toList();
        threads.forEach(Thread::start);
        for (Thread thread : threads)
            thread.join();
        return caught.get();
    }

    private static int depth(int n) {
        return depth(n + 1) + 1;
    }

    /** Often enough that the division is compiled. */
    private static boolean caught(Class<? extends Throwable> expected, Callable<Integer> call) throws Exception {
        for (int i = 0; i < (expected == ArithmeticException.class ? 20_000 : 1); ++i) {
            try {
                call.call();
                return false;
            } catch (Throwable e) {
                if (!expected.isInstance(e))
                    return false;
            }
        }
        return true;
    }

    private static int truncatedFile() throws Exception {
        Path file = Files.createTempFile("faults", "");
        try (RandomAccessFile access = new RandomAccessFile(file.toFile(), "rw")) {
            access.setLength(1 << 20);
            MappedByteBuffer map = access.getChannel().map(FileChannel.MapMode.READ_ONLY, 0, 1 << 20);
            access.setLength(0);
            return map.get(1 << 19);
        } finally {
            Files.delete(file);
        }
    }

    /** Whether waitFor gives the right exit status for children that end with 7. */
    private static String children(int count) throws Exception {
        int lost = 0;
        for (int i = 0; i < count; ++i) {
            if (new ProcessBuilder("/bin/sh", "-c", "exit 7").start().waitFor() != 7)
                lost++;
        }
        return lost == 0 ? "right" : "some lost";
    }
}
