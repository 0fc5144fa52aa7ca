package com.brookfen.quillon.server;

/** The user's home folder as the controller takes it. */
public final class Home {
    private Home() {
    }

    /** $HOME, else Java's user.home (which comes from the password database and ignores a session's $HOME). */
    public static String folder() {
        String home = System.getenv("HOME");
        return home == null || home.isEmpty() ? System.getProperty("user.home") : home;
    }
}
