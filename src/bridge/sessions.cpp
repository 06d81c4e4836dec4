// Versions, login and logout, and errors that are pending in a session.

#include "bridge/TmqKciInterface.h"

namespace {

// What _login passes on. A string that Java passed as null stays null.
struct Login {
    const char* serverName = nullptr;
    const char* kesnetName = nullptr;
    const char* userName = nullptr;
    const char* password = nullptr;
    const char* hostUserName = nullptr;
    const char* hostPassword = nullptr;
};

struct LoginArgument {
    jstring value;
    const char* Login::*borrowed;
    const char* nullMessage; // of a required argument
};

Exit openSession(const NativeCall& call, const Login& login) {
    TRACE_DEBUG("     Connect: server = %s user = %s pass = %s\n", login.serverName, login.userName, login.password);
    TRACE_DEBUG("     Ready to KciSetNet..\n");
    rtlPrivKciRtlFuncs->KciSetNet(login.serverName, login.hostUserName, login.hostPassword, login.kesnetName);
    if (call.clientError()) {
        return call.failed();
    }
    TRACE_DEBUG("     Ready to KciLogin..\n");
    if (!rtlPrivKciRtlFuncs->KciLogin(login.userName, login.password)) {
        TRACE_DEBUG("    Kci_Login Failed!\n");
        return call.clientError() ? call.failed() : call.refused("KciLogin failure: cause unknown");
    }
    TRACE_DEBUG("     Kci_Login OK!\n");
    const KciSessionIdType sessionId = rtlPrivKciRtlFuncs->KciGetSessionId();
    if (call.clientError()) {
        return call.failed(sessionId);
    }
    TRACE_DEBUG("     Setting up dirty object tracking..\n");
    rtlPrivKciRtlFuncs->KciDirtyObjsInit();
    if (call.clientError()) {
        return call.failed(sessionId);
    }
    TRACE_DEBUG("Login completed session = %d.\n", sessionId);
    return call.done(sessionId);
}

} // namespace

TMQKCI_NATIVE(kciVersion)(JNIEnv* env, jclass, jobjectArray jVersionArray, jthrowable jErrReport) {
    return inBridge(env, 0, jErrReport, [&](const NativeCall& call) {
        if (jVersionArray == nullptr) {
            return call.refused("kciVersion(): NULL version array");
        }
        const char* version = rtlPrivKciRtlFuncs->KciVersion();
        if (version == nullptr) {
            return call.refused("Failure of KciVersion() call");
        }
        jstring jVersion = ENV->NewStringUTF(version);
        if (jVersion == nullptr) {
            ENV->ExceptionClear();
            return call.refused("Problem creating java string for KCI version");
        }
        ENV->SetObjectArrayElement(jVersionArray, 0, jVersion);
        if (ENV->ExceptionCheck()) {
            ENV->ExceptionClear();
            return call.refused("kciVersion(): the version array has no room for a string");
        }
        return call.done(0);
    });
}

TMQKCI_NATIVE(login)
(JNIEnv* env, jclass, jstring jServerName, jstring jKesnetName, jstring jUserName, jstring jPassword,
 jstring jHostUserName, jstring jHostPassword, jthrowable jErrReport) {
    TRACE_DEBUG("Login.\n");
    return inBridge(env, 0, jErrReport, [&](const NativeCall& call) {
        const LoginArgument arguments[] = {
            {jServerName, &Login::serverName, "Login:  NULL serverName argument"},
            {jKesnetName, &Login::kesnetName, nullptr},
            {jUserName, &Login::userName, "Login:  NULL UserName argument"},
            {jPassword, &Login::password, "Login:  NULL password argument"},
            {jHostUserName, &Login::hostUserName, nullptr},
            {jHostPassword, &Login::hostPassword, nullptr},
        };
        Login login;
        for (const LoginArgument& argument : arguments) {
            if (argument.value == nullptr) {
                if (argument.nullMessage != nullptr) {
                    return call.refused(argument.nullMessage);
                }
                continue;
            }
            login.*argument.borrowed = GetString(argument.value);
            if (login.*argument.borrowed == nullptr) {
                return call.notLent();
            }
        }
        return openSession(call, login);
    });
}

TMQKCI_NATIVE(logout)(JNIEnv* env, jclass, jint sessionId, jthrowable jErrReport) {
    TRACE_DEBUG("Logout session: %d\n", sessionId);
    return inSession(env, sessionId, jErrReport, [](const NativeCall& call) {
        rtlPrivKciRtlFuncs->KciLogout();
        if (call.clientError()) {
            return call.failed();
        }
        const KciSessionIdType current = rtlPrivKciRtlFuncs->KciGetSessionId();
        TRACE_DEBUG("    After Logout: Session ID = %d\n", current);
        TRACE_DEBUG("    Logout completed.\n");
        return call.done(0);
    });
}

TMQKCI_NATIVE(checkErrors)(JNIEnv* env, jclass, jint sessionId, jthrowable jErrReport) {
    TRACE_DEBUG("CheckErrors: %d\n", sessionId);
    return inSession(env, sessionId, jErrReport, [](const NativeCall& call) {
        rtlPrivKciRtlFuncs->KciPollForSignal();
        if (call.clientError()) {
            return call.failed();
        }
        TRACE_DEBUG("checkErrors completed.\n");
        return call.done(0);
    });
}
