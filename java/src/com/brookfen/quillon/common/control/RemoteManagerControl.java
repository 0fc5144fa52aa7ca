package com.brookfen.quillon.common.control;

import com.brookfen.quillon.server.ServerCore;

/**
 * The controller's handle on remote access. The two natives are supplied by the host
 * process; when the class runs without it (plain java) they are simply not called.
 */
public final class RemoteManagerControl {
    /** A Java-side receiver of the same two events, for hosts without the natives. */
    public interface Listener {
        void updated();

        void connectionTestEnded(boolean passed);
    }

    private static volatile Listener listener;

    private static final RemoteManager MANAGER = new RemoteManager(ServerCore.get(), new RemoteManager.Notifier() {
        @Override
        public void updated() {
            Listener l = listener;
            if (l != null) {
                l.updated();
            }
            try {
                update();
            } catch (UnsatisfiedLinkError noHost) {
                // running without the controller
            }
        }

        @Override
        public void connectionTestEnded(boolean passed) {
            Listener l = listener;
            if (l != null) {
                l.connectionTestEnded(passed);
            }
            try {
                RemoteManagerControl.connectionTestEnded(passed);
            } catch (UnsatisfiedLinkError noHost) {
                // running without the controller
            }
        }
    });

    private RemoteManagerControl() {
    }

    static native void update();

    static native void connectionTestEnded(boolean passed);

    public static void setListener(Listener l) {
        listener = l;
    }

    public static void init(boolean remoteEnabled, boolean portMappingEnabled) {
        MANAGER.init(remoteEnabled, portMappingEnabled);
    }

    public static void setEnableRemote(boolean enabled) {
        MANAGER.setEnabled(enabled);
    }

    public static void setEnablePortMapping(boolean enabled) {
        MANAGER.setPortMapping(enabled);
    }

    public static void retry() {
        MANAGER.retry();
    }

    public static void testConnection() {
        MANAGER.testConnection();
    }

    public static RemoteManagerState getState() {
        return MANAGER.state();
    }
}
