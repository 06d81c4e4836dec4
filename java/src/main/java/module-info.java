/** Java's access to an object database server, over a native library. */
module com.kestrune.tmqkci {
    exports com.kestrune.tmqkci;
}
