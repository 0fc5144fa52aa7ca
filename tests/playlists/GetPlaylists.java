import java.io.FileOutputStream;
import java.io.FileDescriptor;
import java.io.PrintStream;
import java.nio.charset.StandardCharsets;

// Stands in for the server jar's "getPlaylists" command. What it prints is
// chosen by QUILLON_TEST_PLAYLISTS, which the test sets before each load.
public class GetPlaylists {
    public static void main(String[] args) throws Exception {
        PrintStream out = new PrintStream(new FileOutputStream(FileDescriptor.out), false, StandardCharsets.UTF_8);
        String mode = System.getenv("QUILLON_TEST_PLAYLISTS");
        if (mode == null)
            mode = "";
        // The jar's own path and the arguments, as the launcher passed them.
        StringBuilder arguments = new StringBuilder(
            new java.io.File(GetPlaylists.class.getProtectionDomain().getCodeSource().getLocation().toURI()).getPath());
        for (String argument : args)
            arguments.append('|').append(argument);
        switch (mode) {
        case "tree":
            System.err.println("reading the library");
            out.print("{\"playlists\": [{\"id\": \"A1\", \"name\": \"Musique \u00e9t\u00e9 \ud83c\udfb5\", \"children\": ["
                + "{\"id\": \"A2\", \"name\": \"Inner\", \"children\": []}, {\"id\": \"A3\", \"name\": \"Leaf\"}]},"
                + " {\"id\": \"args\", \"name\": \"" + arguments.toString().replace("\\", "/") + "\"}]}");
            break;
        case "empty-list":
            out.print("{\"playlists\": []}");
            break;
        case "null-list":
            out.print("{\"playlists\": null}");
            break;
        case "garbage":
            out.print("Exception in thread main: not a playlist document");
            break;
        case "large":
            // Far more than a pipe holds, so the reader must keep reading.
            out.print("{\"playlists\": [");
            for (int i = 0; i < 20000; ++i)
                out.print((i > 0 ? ", " : "") + "{\"id\": \"P" + i + "\", \"name\": \"Playlist number " + i + "\"}");
            out.print("]}");
            break;
        case "exit-3":
            out.print("{\"playlists\": [{\"id\": \"E\", \"name\": \"Exit status\"}]}");
            out.flush();
            System.exit(3);
            break;
        default:
            break;
        }
        out.flush();
    }
}
