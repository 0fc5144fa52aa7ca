import java.io.File;
import java.io.FileDescriptor;
import java.io.FileOutputStream;
import java.io.PrintStream;
import java.nio.charset.StandardCharsets;

// Stands in for the server jar's "getPlaylists" command. It prints QUILLON_TEST_PLAYLISTS with
// %ARGS% replaced by the jar's path and arguments and %NAME% by a non-ASCII name (not passed
// through the environment, whose encoding depends on the locale), or for "large" more than a
// pipe holds. It always exits with status 3, which the loader has to ignore.
public class GetPlaylists {
    public static void main(String[] args) throws Exception {
        PrintStream out = new PrintStream(new FileOutputStream(FileDescriptor.out), false, StandardCharsets.UTF_8);
        String text = System.getenv().getOrDefault("QUILLON_TEST_PLAYLISTS", "");
        if (text.equals("large")) {
            StringBuilder large = new StringBuilder("{\"playlists\": [");
            for (int i = 0; i < 20000; ++i)
                large.append(i > 0 ? ", " : "").append("{\"id\": \"P" + i + "\", \"name\": \"Playlist number " + i + "\"}");
            text = large.append("]}").toString();
        }
        StringBuilder arguments = new StringBuilder(
            new File(GetPlaylists.class.getProtectionDomain().getCodeSource().getLocation().toURI()).getPath());
        for (String argument : args)
            arguments.append('|').append(argument);
        System.err.println("reading the library");
        out.print(text.replace("%ARGS%", arguments).replace("%NAME%", "Musique \u00e9t\u00e9 \ud83c\udfb5"));
        out.flush();
        System.exit(3);
    }
}
