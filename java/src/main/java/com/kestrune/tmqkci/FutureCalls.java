package com.kestrune.tmqkci;

import java.util.Set;
import java.util.concurrent.CompletableFuture;
import java.util.concurrent.ConcurrentHashMap;
import java.util.concurrent.LinkedBlockingQueue;
import java.util.concurrent.ThreadPoolExecutor;
import java.util.concurrent.TimeUnit;
import java.util.function.BooleanSupplier;
import java.util.function.Function;

/** Calls of a session whose callers do not wait: a thread does, in the order of the calls, as long as there are any. */
final class FutureCalls {
    private static final int IDLE_SECONDS = 1;

    private final ThreadPoolExecutor waiter;
    private final Set<CompletableFuture<KciObject>> pending = ConcurrentHashMap.newKeySet();

    FutureCalls(int session) {
        waiter = new ThreadPoolExecutor(1, 1, IDLE_SECONDS, TimeUnit.SECONDS, new LinkedBlockingQueue<>(), work -> {
            Thread thread = new Thread(work, "tmqkci session " + session);
            thread.setDaemon(true);
            return thread;
        });
        waiter.allowCoreThreadTimeOut(true);
    }

    /** Cancels what is queued, and what runs. */
    void cancelAll() {
        pending.forEach(future -> future.cancel(true));
    }

    /** Queues a call. It is told whether its result is no longer wanted, and may answer null then. */
    CompletableFuture<KciObject> begin(Function<BooleanSupplier, KciObject> call) {
        CompletableFuture<KciObject> future = new CompletableFuture<>();
        pending.add(future);
        future.whenComplete((result, failure) -> pending.remove(future));
        waiter.execute(() -> {
            if (future.isDone()) {
                return;
            }
            Runnable completion;
            try {
                KciObject result = call.apply(future::isDone);
                completion = () -> {
                    if (!future.complete(result) && result != null) {
                        result.release();
                    }
                };
            } catch (Throwable failure) {
                completion = () -> {
                    if (!future.completeExceptionally(failure) && failure instanceof TmqKciException error) {
                        error.releaseProcess();
                    }
                };
            }
            // Not here: what depends on the future may call the session, and wait for this very thread.
            future.defaultExecutor().execute(completion);
        });
        return future;
    }
}
