package com.brookfen.quillon.http;

import org.eclipse.jetty.io.Connection;
import org.eclipse.jetty.server.HttpConnection;
import org.eclipse.jetty.util.thread.Scheduler;

import java.util.Map;
import java.util.concurrent.ConcurrentHashMap;
import java.util.concurrent.TimeUnit;

/**
 * Closes a connection whose request header is still incomplete after a whole period. The
 * idle timeout alone would let a client that trickles a byte now and then keep its
 * connection for ever; no thread waits on either kind, since Jetty reads without blocking.
 */
final class HeaderDeadline implements Connection.Listener {
    private final Scheduler scheduler;
    private final long millis;
    private final Map<Connection, Scheduler.Task> tasks = new ConcurrentHashMap<>();

    HeaderDeadline(Scheduler scheduler, long millis) {
        this.scheduler = scheduler;
        this.millis = millis;
    }

    @Override
    public void onOpened(Connection connection) {
        if (connection instanceof HttpConnection) {
            schedule((HttpConnection) connection, -1);
        }
    }

    @Override
    public void onClosed(Connection connection) {
        Scheduler.Task task = tasks.remove(connection);
        if (task != null) {
            task.cancel();
        }
    }

    /** Checks again after a period; requestsSeen is -1 when the last check found no header under way. */
    private void schedule(HttpConnection c, long requestsSeen) {
        tasks.put(c, scheduler.schedule(() -> check(c, requestsSeen), millis, TimeUnit.MILLISECONDS));
    }

    private void check(HttpConnection c, long requestsSeen) {
        if (!c.getEndPoint().isOpen()) {
            tasks.remove(c);
            return;
        }
        boolean midHeader = c.getParser().inHeaderState() && !c.getParser().isStart();
        long requests = c.getHttpChannel().getRequests();
        if (midHeader && requests == requestsSeen) {
            tasks.remove(c);
            c.getEndPoint().close();
            return;
        }
        schedule(c, midHeader ? requests : -1);
    }
}
