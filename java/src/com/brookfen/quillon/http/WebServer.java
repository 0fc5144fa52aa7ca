package com.brookfen.quillon.http;

import org.eclipse.jetty.server.HttpConfiguration;
import org.eclipse.jetty.server.HttpConnectionFactory;
import org.eclipse.jetty.server.Server;
import org.eclipse.jetty.server.ServerConnector;
import org.eclipse.jetty.server.handler.ErrorHandler;
import org.eclipse.jetty.servlet.ServletContextHandler;
import org.eclipse.jetty.servlet.ServletHolder;
import org.eclipse.jetty.util.thread.QueuedThreadPool;
import org.eclipse.jetty.util.thread.ScheduledExecutorScheduler;

import java.io.IOException;
import java.net.BindException;
import javax.servlet.Servlet;

/**
 * One listening Jetty server on one address and port. Reads never block a thread (a
 * selector waits for every connection), idle connections and headers that take too long
 * are closed, and all threads are daemons so that they never hold the JVM open.
 */
public final class WebServer {
    /** Milliseconds a connection may stay silent (default 30 s); tests shorten it. */
    public static final String IDLE_TIMEOUT_PROPERTY = "quillon.http.idle.ms";
    /** Milliseconds a request header may take to arrive (default 15 s; closed within twice that). */
    public static final String HEADER_TIMEOUT_PROPERTY = "quillon.http.header.ms";
    static final int MAX_THREADS = 200;
    static final int HEADER_BYTES = 16 * 1024;

    static {
        // Jetty's own start-up chatter stays out of the controller's standard error.
        if (System.getProperty("org.eclipse.jetty.LEVEL") == null) {
            System.setProperty("org.eclipse.jetty.LEVEL", "WARN");
        }
        if (System.getProperty("org.eclipse.jetty.util.log.announce") == null) {
            System.setProperty("org.eclipse.jetty.util.log.announce", "false");
        }
    }

    private final Server server;
    private final ServerConnector connector;

    /** A server for the site on the address (null or empty: every interface) and port (0: any free port). */
    public WebServer(Site site, String address, int port) {
        QueuedThreadPool threads = new QueuedThreadPool(MAX_THREADS, 2, 60_000);
        threads.setName("quillon-http");
        threads.setDaemon(true);
        server = new Server(threads);
        server.setStopTimeout(1000);

        HttpConfiguration config = new HttpConfiguration();
        config.setSendServerVersion(false);
        config.setSendXPoweredBy(false);
        config.setRequestHeaderSize(HEADER_BYTES);
        ScheduledExecutorScheduler timer = new ScheduledExecutorScheduler("quillon-http-timer", true);
        connector = new ServerConnector(server, null, timer, null, 1, 1, new HttpConnectionFactory(config));
        connector.setHost(address == null || address.isEmpty() ? null : address);
        connector.setPort(port);
        connector.setIdleTimeout(millis(IDLE_TIMEOUT_PROPERTY, 30_000));
        connector.addBean(new HeaderDeadline(timer, millis(HEADER_TIMEOUT_PROPERTY, 15_000)));
        server.addConnector(connector);

        ServletContextHandler context = new ServletContextHandler(ServletContextHandler.NO_SESSIONS);
        context.setContextPath("/");
        ErrorHandler errors = new ErrorHandler();
        errors.setShowStacks(false);
        errors.setShowServlet(false);
        context.setErrorHandler(errors);
        server.setErrorHandler(errors);
        add(context, new ApiServlet(site), "/api/*");
        add(context, new MediaServlet(site), "/media/*");
        add(context, new HlsServlet(site), "/hls/*");
        add(context, new ThumbnailServlet(site), "/thumbnails/*");
        add(context, new SubtitleServlet(site), "/subtitles/*");
        add(context, new WebFiles.Status(site), "/status");
        WebFiles files = new WebFiles(site);
        add(context, files, "/");

        BasicAuthHandler auth = new BasicAuthHandler(site.passwordDigest(), files::isPlayerFile);
        auth.setHandler(context);
        server.setHandler(auth);
    }

    private static void add(ServletContextHandler context, Servlet servlet, String path) {
        ServletHolder holder = new ServletHolder(servlet);
        holder.setAsyncSupported(true);
        context.addServlet(holder, path);
    }

    private static long millis(String property, long fallback) {
        try {
            long v = Long.parseLong(System.getProperty(property, "").trim());
            return v > 0 ? v : fallback;
        } catch (NumberFormatException e) {
            return fallback;
        }
    }

    /** Binds and starts; the bound port. A taken port is a BindException. */
    public int start() throws IOException {
        try {
            server.start();
        } catch (Exception e) {
            stop();
            for (Throwable t = e; t != null; t = t.getCause()) {
                if (t instanceof BindException) {
                    throw (BindException) t;
                }
            }
            throw e instanceof IOException ? (IOException) e : new IOException(e.getMessage(), e);
        }
        return connector.getLocalPort();
    }

    public void stop() {
        try {
            server.stop();
        } catch (Exception e) {
            // stopping anyway: the connector is closed first
        }
    }
}
