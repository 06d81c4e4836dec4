/**
 * A Java program's access to an object database server: the native methods of
 * {@link com.kestrune.tmqkci.TmqKciInterface} and the three plain records that they fill.
 *
 * <p>A native method answers a status, never an exception of its own: a negative one means that the
 * {@link com.kestrune.tmqkci.TmqKciException} given as its last argument was filled, and the caller decides whether to
 * throw it. Objects travel as {@link com.kestrune.tmqkci.TmqKciReport}.
 *
 * <p>Nothing here is thread-safe. The bridge's state belongs to the process: a program that uses it from several
 * threads must see to it that only one of them is inside a native method at a time.
 */
package com.kestrune.tmqkci;
