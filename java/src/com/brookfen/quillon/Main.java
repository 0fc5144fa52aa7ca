package com.brookfen.quillon;

import com.brookfen.quillon.common.control.RemoteManagerControl;
import com.brookfen.quillon.common.control.ServerControl;
import com.brookfen.quillon.server.Playlists;

import java.io.File;
import java.io.PrintStream;
import java.io.UnsupportedEncodingException;
import java.util.concurrent.CountDownLatch;

/**
 * Command line of the server jar:
 *   getPlaylists     print the playlist document and exit
 *   serve [port]     (also with no argument) run the server on its own until killed
 */
public final class Main {
    /** Overrides the application folder, which is otherwise the controller's. */
    public static final String APP_FOLDER_PROPERTY = "quillon.application.folder";

    private Main() {
    }

    public static void main(String[] args) throws Exception {
        String command = args.length == 0 ? "serve" : args[0];
        switch (command) {
            case "getPlaylists":
                PrintStream out = utf8Out();
                out.println(Playlists.document(Playlists.sourceFolder()));
                out.flush();
                System.exit(0);
                break;
            case "serve":
                System.exit(serve(args.length > 1 ? args[1] : null));
                break;
            default:
                System.err.println("usage: java -jar QuillonServer.jar [getPlaylists | serve [port]]");
                System.exit(2);
        }
    }

    private static PrintStream utf8Out() throws UnsupportedEncodingException {
        return new PrintStream(System.out, false, "UTF-8");
    }

    static String applicationFolder() {
        String p = System.getProperty(APP_FOLDER_PROPERTY);
        if (p != null && !p.isEmpty()) {
            return p;
        }
        return com.brookfen.quillon.server.Home.folder() + "/Library/Application Support/QuillonServer";
    }

    private static int serve(String portArg) throws InterruptedException {
        if (System.getProperty("java.awt.headless") == null) {
            System.setProperty("java.awt.headless", "true");
        }
        if (portArg != null) {
            int port;
            try {
                port = Integer.parseInt(portArg);
            } catch (NumberFormatException e) {
                System.err.println("Not a port: " + portArg);
                return 2;
            }
            if (port < 0 || port > 65535) {
                System.err.println("Not a port: " + portArg);
                return 2;
            }
            ServerControl.setDefaultPort(port);
        }
        ServerControl.init(applicationFolder());
        RemoteManagerControl.init(false, false);
        // The same warm-up as the desktop controller's start-up: subtitle
        // rendering needs the font and charset tables either way.
        ServerControl.getAvailableFontFamilyNames();
        ServerControl.getAvailableEncodings();
        File ffmpeg = besideJar("ffmpeg");
        if (ffmpeg != null) {
            ServerControl.setConverterFFMpegPath(ffmpeg.getPath());
        }
        int port = ServerControl.startServer();
        if (port < 0) {
            System.err.println("Couldn't start the server");
            return 1;
        }
        System.out.println("Server started on: " + port);
        System.out.flush();
        ServerControl.initialized();
        new CountDownLatch(1).await();
        return 0;
    }

    /** A file in the jar's own folder (the resource folder), or null. */
    private static File besideJar(String name) {
        try {
            File jar = new File(Main.class.getProtectionDomain().getCodeSource().getLocation().toURI());
            File f = new File(jar.getParentFile(), name);
            return f.canExecute() ? f : null;
        } catch (Exception e) {
            return null;
        }
    }
}
