package com.kestrune.tmqkci;

import java.lang.ref.Reference;

/**
 * The receiver and the arguments of a call, converted. What the call creates of them lives until it has ended, and so
 * do the objects among them, which nobody else may refer to any more.
 */
final class Arguments {
    private final Object[] values;
    private final Object receiverValue;
    final TmqKciReport receiver;
    final TmqKciReport[] reports;

    /** Converts; what has to be created first is created. Inside the session's turn. */
    Arguments(KciSession session, Object receiver, Object... values) {
        this.values = values;
        receiverValue = receiver;
        reports = new TmqKciReport[values.length];
        // What cannot be converted is refused before anything is created.
        TmqKciReport convertedReceiver = Values.toServer(session, receiver);
        for (int i = 0; i < values.length; ++i) {
            reports[i] = Values.toServer(session, values[i]);
        }
        boolean complete = false;
        try {
            for (int i = 0; i < values.length; ++i) {
                if (reports[i] == null) {
                    reports[i] = session.transfers().newBody(values[i]);
                }
            }
            if (convertedReceiver == null) {
                convertedReceiver = session.transfers().newBody(receiver);
            }
            complete = true;
        } finally {
            if (!complete) {
                releaseCreated(session.exports());
            }
        }
        this.receiver = convertedReceiver;
    }

    /** Counts a reference to each object that a native call has created; in that call's hold of the bridge's lock. */
    void retainCreated(ExportSet exports) {
        retainCreated(receiver, exports);
        for (TmqKciReport report : reports) {
            retainCreated(report, exports);
        }
    }

    private static void retainCreated(TmqKciReport report, ExportSet exports) {
        if (report.objType == TmqKciReport.KIND_NONE) {
            exports.retain(report.oop);
        }
    }

    /** Ends the references to all created objects; until here the others are kept reachable. */
    void releaseCreated(ExportSet exports) {
        if (receiver != null && !(receiverValue instanceof KciObject)) {
            exports.release(receiver.oop);
        }
        for (int i = 0; i < reports.length; ++i) {
            if (reports[i] != null && !(values[i] instanceof KciObject)) {
                exports.release(reports[i].oop);
            }
        }
        Reference.reachabilityFence(receiverValue);
        Reference.reachabilityFence(values);
    }
}
