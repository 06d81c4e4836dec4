import java.io.File;
import java.io.RandomAccessFile;
import java.nio.MappedByteBuffer;
import java.nio.channels.FileChannel;
import java.util.concurrent.Callable;
import java.util.stream.IntStream;

/** A virtual machine with the fault handler installed; the second argument says what it does. */
public final class Faults {
    static native void install();
    static native int segvCount();
    static native void faultInLibrary();
    static native void faultInForeignCode();

    private int field = 1;
    private static volatile Faults nothing;

    public static void main(String[] args) throws Exception {
        System.load(args[0]);
        install();
        switch (args[1]) {
            case "healthy" -> healthy();
            case "library" -> faultInLibrary();
            case "foreign" -> faultInForeignCode();
            default -> signal(args[1]);
        }
        System.out.println("done");
    }

    private static void signal(String name) throws Exception {
        Runtime.getRuntime().addShutdownHook(new Thread(() -> System.out.println("shutdown hook")));
        run("kill -" + name + " " + ProcessHandle.current().pid());
        Thread.sleep(2000);
    }

    private static void healthy() throws Exception {
        int count = 100_000;
        long caught = IntStream.range(0, count).parallel()
            .filter(n -> isThrown(NullPointerException.class, () -> nothing.field++)).count();
        System.out.println("null checks: " + (caught == count));
        System.out.println("faults passed on: " + (segvCount() > count / 2));
        System.out.println("stack overflow: " + isThrown(StackOverflowError.class, () -> depth(0)));
        // Often enough that the division is compiled.
        System.out.println("division: " + IntStream.range(0, 20_000)
            .allMatch(n -> isThrown(ArithmeticException.class, () -> 1 / (nothing == null ? 0 : 1))));
        System.out.println("truncated file: " + isThrown(InternalError.class, Faults::truncatedFile));
        boolean right = true;
        for (int i = 0; i < 20; ++i)
            right &= run("exit 7") == 7;
        System.out.println("children: " + right);
    }

    private static boolean isThrown(Class<? extends Throwable> expected, Callable<Integer> call) {
        try {
            call.call();
            return false;
        } catch (Throwable e) {
            return expected.isInstance(e);
        }
    }

    private static int depth(int n) {
        return depth(n + 1) + 1;
    }

    private static int truncatedFile() throws Exception {
        File file = File.createTempFile("faults", "");
        try (RandomAccessFile access = new RandomAccessFile(file, "rw")) {
            MappedByteBuffer map = access.getChannel().map(FileChannel.MapMode.READ_WRITE, 0, 1 << 20);
            file.delete();
            access.setLength(0);
            return map.get(1 << 19);
        }
    }

    private static int run(String command) throws Exception {
        return new ProcessBuilder("/bin/sh", "-c", command).start().waitFor();
    }
}
