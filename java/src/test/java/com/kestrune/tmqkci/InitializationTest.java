package com.kestrune.tmqkci;

import static org.junit.jupiter.api.Assertions.*;

import java.lang.reflect.Method;
import java.lang.reflect.Modifier;
import java.util.List;
import java.util.stream.Stream;

import org.junit.jupiter.api.Test;

/** Every native method is found by its Java name, before the first initialization; then initialization itself. */
class InitializationTest {
    /** Calls a native method with arguments that mean nothing; answers its error's message. */
    private static String refusal(Method method) {
        TmqKciException error = new TmqKciException();
        Object[] arguments = Stream.of(method.getParameterTypes()).map(type -> type == int.class ? (Object) 1
                : type == long.class ? (Object) 1L : type == boolean.class ? (Object) false
                : type == TmqKciException.class ? error : null).toArray();
        try {
            assertEquals(TmqKciInterface.FAILED, method.invoke(null, arguments));
        } catch (ReflectiveOperationException failure) {
            throw new AssertionError(method.getName(), failure);
        }
        assertArrayEquals(new long[] {TmqKciException.BRIDGE_ERROR, Values.NIL, Values.NIL, 0},
                new long[] {error.number, error.category, error.context, error.argCount});
        return error.getMessage();
    }

    /** It hides fields of the report. */
    static final class Hiding extends TmqKciException {
        private static final long serialVersionUID = 1L;
        int number;
        boolean fatal;
    }

    @Test
    void beforeAtAndAfterTheFirstInitialization() {
        Hiding first = new Hiding();
        assertEquals(TmqKciInterface.FAILED, TmqKciInterface._logout(1, first));
        assertEquals(TmqKciException.BRIDGE_ERROR, ((TmqKciException) first).number);
        assertEquals(TmqKciInterface.FAILED, TmqKciInterface._logout(1, null));
        List<Method> methods = Stream.of(TmqKciInterface.class, TmqKciControl.class)
                .flatMap(each -> Stream.of(each.getDeclaredMethods()))
                .filter(each -> Modifier.isNative(each.getModifiers()) && !each.getName().equals("_initialize"))
                .toList();
        methods.forEach(method -> assertEquals(method.getName().startsWith("_KCSI")
                ? "KCSI Interface not defined for 32-bit" : "KCI: Not initialized", refusal(method)));
        assertEquals(32, methods.size());

        TmqKciException error = new TmqKciException();
        long[] kernelOops = new long[TmqKciInterface.KERNEL_OOPS];
        assertEquals(TmqKciInterface.FAILED, TmqKciInterface._initialize(0, "tests", 64, 64, 0, kernelOops, error));
        assertTrue(error.message.startsWith("KciRtlLoad failure: dlopen(libkcirpc67.so) failed because "),
                error.message);
        assertEquals(TmqKciInterface.INITIALIZED,
                TmqKciInterface._initialize(1, "tests", 64, 64, 0, kernelOops, error));
        assertEquals(Values.NIL, kernelOops[0]);
        assertEquals(TmqKciInterface.FAILED, TmqKciInterface._checkErrors(1, null));
    }
}
