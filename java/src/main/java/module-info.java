/** Java's access to an object database server, over a native library. */
module com.kestrune.tmqkci {
    exports com.kestrune.tmqkci;
    // Counters and events are shown where the virtual machine has these.
    requires static java.management;
    requires static jdk.jfr;
}
