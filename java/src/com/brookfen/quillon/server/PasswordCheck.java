package com.brookfen.quillon.server;

import java.nio.charset.StandardCharsets;
import java.security.MessageDigest;
import java.security.NoSuchAlgorithmException;
import java.util.Base64;
import java.util.Locale;

/**
 * Clients authenticate with HTTP Basic; the user name is ignored and the password is
 * accepted when its salted digest equals the one the controller stored. The digest is
 * the controller's: upper-case hex SHA-1 of the UTF-8 of "Q#48" + password + "&5m"
 * (of nothing at all for an empty password), cut at the first zero byte.
 */
public final class PasswordCheck {
    private PasswordCheck() {
    }

    public static String digest(String password) {
        String salted = password.isEmpty() ? "" : "Q#48" + password + "&5m";
        byte[] bytes = salted.getBytes(StandardCharsets.UTF_8);
        int len = 0;
        while (len < bytes.length && bytes[len] != 0) {
            len++;
        }
        try {
            MessageDigest sha1 = MessageDigest.getInstance("SHA-1");
            sha1.update(bytes, 0, len);
            StringBuilder hex = new StringBuilder(40);
            for (byte b : sha1.digest()) {
                hex.append(String.format("%02X", b & 0xff));
            }
            return hex.toString();
        } catch (NoSuchAlgorithmException e) {
            throw new IllegalStateException("SHA-1 missing from the runtime", e);
        }
    }

    /**
     * Whether an Authorization header satisfies the digest. An empty or null digest means
     * no password is required.
     */
    public static boolean accepts(String expectedDigest, String authorization) {
        if (expectedDigest == null || expectedDigest.isEmpty()) {
            return true;
        }
        if (authorization == null || !authorization.regionMatches(true, 0, "Basic ", 0, 6)) {
            return false;
        }
        String decoded;
        try {
            decoded = new String(Base64.getDecoder().decode(authorization.substring(6).trim()),
                    StandardCharsets.UTF_8);
        } catch (IllegalArgumentException e) {
            return false;
        }
        int colon = decoded.indexOf(':');
        String password = colon < 0 ? decoded : decoded.substring(colon + 1);
        byte[] given = digest(password).getBytes(StandardCharsets.US_ASCII);
        byte[] expected = expectedDigest.toUpperCase(Locale.ROOT).getBytes(StandardCharsets.US_ASCII);
        return MessageDigest.isEqual(given, expected);
    }
}
