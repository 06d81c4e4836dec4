#include "host/signals/borrowedsignal.h"

#include "host/base/errnokeeper.h"
#include "host/signals/unixiosignal.h"
#include "hostsignal.h"

void BorrowedSignal::change(int& users, int by) {
    const ErrnoKeeper errnoKeeper;
    pthread_mutex_lock(&mutex_);
    users += by;
    apply(defaultUsers_ > 0 ? Disposition::byDefault : ignoringUsers_ > 0 ? Disposition::ignored : Disposition::own);
    pthread_mutex_unlock(&mutex_);
}

void BorrowedSignal::apply(Disposition wanted) {
    if (wanted == current_)
        return;
    if (wanted == Disposition::own) {
        unixioSetAction(signal_, own_);
    } else {
        const auto plain = wanted == Disposition::ignored ? SIG_IGN : SIG_DFL;
        UNIXIO_DO_SIGNAL(signal_, unixioPlain(plain), current_ == Disposition::own ? &own_ : nullptr);
    }
    current_ = wanted;
}
