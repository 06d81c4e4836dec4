/**
 * A Java program's access to an object database server.
 *
 * <p>{@link com.kestrune.tmqkci.KciSession} is the way in: it runs code on the server, moves the contents of objects,
 * throws errors as exceptions, may be used by several threads, and gives up by itself what the program forgets.
 *
 * <p>Below it are the native methods of {@link com.kestrune.tmqkci.TmqKciInterface} and the three plain records that
 * they fill. A native method answers a status, never an exception of its own: a negative one means that the
 * {@link com.kestrune.tmqkci.TmqKciException} given as its last argument was filled, and the caller decides whether to
 * throw it. Objects travel as {@link com.kestrune.tmqkci.TmqKciReport}. The native methods are not thread-safe, and the
 * bridge's state belongs to the process: only one thread may be inside one of them at a time. One that uses them beside
 * sessions holds {@link com.kestrune.tmqkci.KciBridge#lock} meanwhile.
 */
package com.kestrune.tmqkci;
