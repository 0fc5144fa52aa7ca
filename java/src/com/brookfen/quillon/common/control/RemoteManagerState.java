package com.brookfen.quillon.common.control;

/** An immutable snapshot of remote access, as the controller's remote page shows it. */
public final class RemoteManagerState {
    private final String serverPin;
    private final String message;
    private final boolean retryVisible;
    private final boolean testConnectionVisible;
    private final boolean inProgress;
    private final int port;

    public RemoteManagerState(String serverPin, String message, boolean retryVisible,
            boolean testConnectionVisible, boolean inProgress, int port) {
        this.serverPin = serverPin;
        this.message = message;
        this.retryVisible = retryVisible;
        this.testConnectionVisible = testConnectionVisible;
        this.inProgress = inProgress;
        this.port = port;
    }

    public String getServerPin() {
        return serverPin;
    }

    public String getMessage() {
        return message;
    }

    public boolean isRetryVisible() {
        return retryVisible;
    }

    public boolean isTestConnectionVisible() {
        return testConnectionVisible;
    }

    public boolean isInProgress() {
        return inProgress;
    }

    public int getPort() {
        return port;
    }

    @Override
    public String toString() {
        return "RemoteManagerState[pin=" + serverPin + ", message=" + message + ", retry=" + retryVisible
                + ", test=" + testConnectionVisible + ", inProgress=" + inProgress + ", port=" + port + "]";
    }
}
