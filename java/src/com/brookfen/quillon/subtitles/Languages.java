package com.brookfen.quillon.subtitles;

import java.util.Collections;
import java.util.HashMap;
import java.util.Locale;
import java.util.Map;
import java.util.MissingResourceException;

/**
 * Language codes as files and streams carry them (ISO 639-1, 639-2/T and 639-2/B, with or
 * without a region) and the English names the controller uses, brought to one code each.
 */
final class Languages {
    /** ISO 639-2/B codes that differ from their /T form. */
    private static final Map<String, String> BIBLIOGRAPHIC = Map.ofEntries(
            Map.entry("alb", "sqi"), Map.entry("arm", "hye"), Map.entry("baq", "eus"), Map.entry("bur", "mya"),
            Map.entry("chi", "zho"), Map.entry("cze", "ces"), Map.entry("dut", "nld"), Map.entry("fre", "fra"),
            Map.entry("geo", "kat"), Map.entry("ger", "deu"), Map.entry("gre", "ell"), Map.entry("ice", "isl"),
            Map.entry("mac", "mkd"), Map.entry("mao", "mri"), Map.entry("may", "msa"), Map.entry("per", "fas"),
            Map.entry("rum", "ron"), Map.entry("slo", "slk"), Map.entry("tib", "bod"), Map.entry("wel", "cym"));
    private static final Map<String, String> THREE_TO_TWO;
    private static final Map<String, String> NAME_TO_CODE;

    static {
        Map<String, String> three = new HashMap<>();
        Map<String, String> names = new HashMap<>();
        for (String two : Locale.getISOLanguages()) {
            Locale l = new Locale(two);
            try {
                three.put(l.getISO3Language(), two);
            } catch (MissingResourceException ignored) {
                // no three-letter form
            }
            String name = l.getDisplayLanguage(Locale.ENGLISH);
            if (!name.isEmpty() && !name.equals(two)) {
                names.putIfAbsent(name.toLowerCase(Locale.ROOT), two);
            }
        }
        THREE_TO_TWO = Collections.unmodifiableMap(three);
        NAME_TO_CODE = Collections.unmodifiableMap(names);
    }

    private Languages() {
    }

    /**
     * The one code for a tag: ISO 639-1 where the language has one, else its 639-2/T code;
     * null for no language, "und" and tags that name no language.
     */
    static String normalize(String tag) {
        if (tag == null) {
            return null;
        }
        String t = tag.trim().toLowerCase(Locale.ROOT);
        int cut = indexOfAny(t, "-_");
        if (cut > 0) {
            t = t.substring(0, cut);
        }
        if (!t.matches("[a-z]{2,3}") || t.equals("und") || t.equals("mul") || t.equals("zxx")) {
            return null;
        }
        if (t.length() == 2) {
            String two = new Locale(t).getLanguage();
            return THREE_TO_TWO.containsValue(two) || NAME_TO_CODE.containsValue(two) ? two : null;
        }
        t = BIBLIOGRAPHIC.getOrDefault(t, t);
        String two = THREE_TO_TWO.get(t);
        if (two != null) {
            return two;
        }
        String name = new Locale(t).getDisplayLanguage(Locale.ENGLISH);
        return name.isEmpty() || name.equals(t) ? null : t;
    }

    /** The code of a language the controller names in English ("French"), or of a code given as is. */
    static String forName(String name) {
        if (name == null) {
            return null;
        }
        String code = NAME_TO_CODE.get(name.trim().toLowerCase(Locale.ROOT));
        return code != null ? code : normalize(name);
    }

    /** The English name of a normalized code, or the code itself. */
    static String displayName(String code) {
        if (code == null) {
            return null;
        }
        String name = new Locale(code).getDisplayLanguage(Locale.ENGLISH);
        return name.isEmpty() ? code : name;
    }

    private static int indexOfAny(String s, String chars) {
        for (int i = 0; i < s.length(); i++) {
            if (chars.indexOf(s.charAt(i)) >= 0) {
                return i;
            }
        }
        return -1;
    }
}
