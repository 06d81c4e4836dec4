package com.kestrune.tmqkci;

import static org.junit.jupiter.api.Assertions.*;

import java.lang.reflect.Method;
import java.lang.reflect.Modifier;
import java.util.List;
import java.util.stream.Stream;

import org.junit.jupiter.api.Test;

/** Every native method is found by its Java name, before the first initialization; then initialization itself. */
class InitializationTest {
    /** Calls a native method with arguments that mean nothing. */
    private static int call(Method method, TmqKciException error) {
        Object[] arguments = Stream.of(method.getParameterTypes()).map(type -> type == int.class ? (Object) 1
                : type == long.class ? (Object) 1L : type == boolean.class ? (Object) false
                : type == TmqKciException.class ? error : null).toArray();
        try {
            return (int) method.invoke(null, arguments);
        } catch (ReflectiveOperationException failure) {
            throw new AssertionError(method.getName(), failure);
        }
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
                .filter(each -> Modifier.isNative(each.getModifiers()) && !each.getName().equals("_initialize")).toList();
        methods.forEach(method -> TestSession.refuse(method.getName().startsWith("_KCSI")
                ? "KCSI Interface not defined for 32-bit" : "KCI: Not initialized", error -> call(method, error)));
        assertEquals(32, methods.size());
        String missing = TestSession.fail(error -> TmqKciInterface._initialize(0, "tests", 64, 64, 0,
                new long[TmqKciInterface.KERNEL_OOPS], error)).message;
        assertTrue(missing.startsWith("KciRtlLoad failure: dlopen(libkcirpc67.so) failed because "), missing);

        assertArrayEquals(new long[] {10, 1189, 3613, 3, 7, -536870912, 536870911, 38, 6, 1733, 1045, 1049, 1197, 1209,
            1213, 0}, TestSession.initialize());
        String[] version = {null, "untouched"};
        TestSession.succeed(error -> TmqKciInterface._kciVersion(version, error));
        assertArrayEquals(new String[] {"6.7.local", "untouched"}, version);
        assertEquals(TmqKciInterface.FAILED, TmqKciInterface._checkErrors(1, null));
    }
}
