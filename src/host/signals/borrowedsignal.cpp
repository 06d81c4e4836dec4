#include "host/signals/borrowedsignal.h"

#include "host/base/errnokeeper.h"
#include "host/signals/unixiosignal.h"
#include "hostsignal.h"

void BorrowedSignal::change(int& users, int by) {
    const ErrnoKeeper errnoKeeper;
    pthread_mutex_lock(&mutex);
    users += by;
    apply(defaultUsers > 0 ? Disposition::byDefault : ignoringUsers > 0 ? Disposition::ignored : Disposition::own);
    pthread_mutex_unlock(&mutex);
}

void BorrowedSignal::apply(Disposition wanted) {
    if (wanted == current) {
        return;
    }
    if (wanted == Disposition::own) {
        unixioSetAction(number, ownAction);
    } else {
        const auto plain = wanted == Disposition::ignored ? SIG_IGN : SIG_DFL;
        UNIXIO_DO_SIGNAL(number, unixioPlain(plain), current == Disposition::own ? &ownAction : nullptr);
    }
    current = wanted;
}
