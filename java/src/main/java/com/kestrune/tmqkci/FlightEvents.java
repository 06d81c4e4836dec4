package com.kestrune.tmqkci;

import jdk.jfr.Category;
import jdk.jfr.Event;
import jdk.jfr.Label;
import jdk.jfr.Name;

/**
 * Events of Java's flight recorder. An event is an Object here, null as long as nobody records it: so nothing of the
 * recorder is loaded where this Java has none.
 */
final class FlightEvents {
    private static final boolean PRESENT = isPresent();

    private FlightEvents() {
    }

    @Category("Tmqkci")
    private abstract static class SessionEvent extends Event {
        @Label("Session")
        int session;
        @Label("Kind")
        String kind;
        @Label("Error Number")
        int error;
    }

    @Name("com.kestrune.tmqkci.Login")
    @Label("Login")
    private static final class Login extends SessionEvent {
        static final Login ANY = new Login();
    }

    @Name("com.kestrune.tmqkci.Call")
    @Label("Call")
    private static final class Call extends SessionEvent {
        static final Call ANY = new Call();
    }

    @Name("com.kestrune.tmqkci.Transaction")
    @Label("Transaction")
    private static final class Transaction extends SessionEvent {
        static final Transaction ANY = new Transaction();
    }

    @Name("com.kestrune.tmqkci.PoolWait")
    @Label("Wait for a Session of a Pool")
    private static final class PoolWait extends SessionEvent {
        static final PoolWait ANY = new PoolWait();
    }

    private static boolean isPresent() {
        try {
            Class.forName("jdk.jfr.Event");
            return true;
        } catch (ClassNotFoundException | LinkageError none) {
            return false;
        }
    }

    static Object beginLogin() {
        return PRESENT && Login.ANY.isEnabled() ? begun(new Login()) : null;
    }

    static Object beginCall() {
        return PRESENT && Call.ANY.isEnabled() ? begun(new Call()) : null;
    }

    static Object beginTransaction() {
        return PRESENT && Transaction.ANY.isEnabled() ? begun(new Transaction()) : null;
    }

    static Object beginPoolWait() {
        return PRESENT && PoolWait.ANY.isEnabled() ? begun(new PoolWait()) : null;
    }

    private static Object begun(Object event) {
        ((Event) event).begin();
        return event;
    }

    /** Ends an event, and records it; does nothing for null. */
    static void end(Object event, int session, String kind, int error) {
        if (event != null) {
            SessionEvent ending = (SessionEvent) event;
            ending.session = session;
            ending.kind = kind;
            ending.error = error;
            ending.commit();
        }
    }
}
