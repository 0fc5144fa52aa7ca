package com.brookfen.quillon.media;

import com.brookfen.quillon.server.Json;

import java.util.ArrayList;
import java.util.Arrays;
import java.util.Collections;
import java.util.HashSet;
import java.util.List;
import java.util.Locale;
import java.util.Map;
import java.util.Set;

/** What ffprobe found in a file. Every value it could not tell is null. */
public final class MediaInfo {
    /** A subtitle stream inside the file. */
    public static final class Stream {
        /** The stream's index in the file (as in ffmpeg's "-map 0:index"). */
        public final int index;
        public final String codec;
        public final String language;
        public final String title;

        public Stream(int index, String codec, String language, String title) {
            this.index = index;
            this.codec = codec;
            this.language = language;
            this.title = title;
        }

        @Override
        public String toString() {
            return "#" + index + " " + codec + " " + language + " " + title;
        }
    }

    private static final Set<String> MP4_VIDEO = new HashSet<>(Arrays.asList("h264", "av1"));
    private static final Set<String> MP4_AUDIO = new HashSet<>(Arrays.asList("aac", "mp3", "opus", "flac"));
    private static final Set<String> WEBM_VIDEO = new HashSet<>(Arrays.asList("vp8", "vp9", "av1"));
    private static final Set<String> WEBM_AUDIO = new HashSet<>(Arrays.asList("opus", "vorbis"));

    public final Double duration;
    public final Integer width;
    public final Integer height;
    public final String videoCodec;
    public final String audioCodec;
    public final List<Stream> subtitleStreams;

    public MediaInfo(Double duration, Integer width, Integer height, String videoCodec, String audioCodec,
            List<Stream> subtitleStreams) {
        this.duration = duration;
        this.width = width;
        this.height = height;
        this.videoCodec = videoCodec;
        this.audioCodec = audioCodec;
        this.subtitleStreams = subtitleStreams == null ? Collections.emptyList()
                : Collections.unmodifiableList(new ArrayList<>(subtitleStreams));
    }

    /**
     * Reads ffprobe's "-print_format json" answer (format and streams); null when the text
     * is no such answer.
     */
    public static MediaInfo fromFfprobe(String json) {
        Map<String, Object> root = Json.parseObject(json);
        if (root == null) {
            return null;
        }
        Double duration = number(root.get("format"), "duration");
        Integer width = null;
        Integer height = null;
        String video = null;
        String audio = null;
        Double streamDuration = null;
        List<Stream> subtitles = new ArrayList<>();
        Object streams = root.get("streams");
        if (streams instanceof List) {
            for (Object s : (List<?>) streams) {
                String type = Json.string(s, "codec_type");
                String codec = Json.string(s, "codec_name");
                if ("video".equals(type) && video == null && !attachedPicture(s)) {
                    video = codec;
                    width = integer(number(s, "width"));
                    height = integer(number(s, "height"));
                    streamDuration = number(s, "duration");
                } else if ("audio".equals(type) && audio == null) {
                    audio = codec;
                } else if ("subtitle".equals(type)) {
                    Double index = number(s, "index");
                    Object tags = s instanceof Map ? ((Map<?, ?>) s).get("tags") : null;
                    if (index != null) {
                        subtitles.add(new Stream(index.intValue(), codec, clean(Json.string(tags, "language")),
                                clean(Json.string(tags, "title"))));
                    }
                }
            }
        }
        if (duration == null) {
            duration = streamDuration;
        }
        if (duration == null && video == null && audio == null) {
            return null;
        }
        return new MediaInfo(duration, width, height, video, audio, subtitles);
    }

    private static boolean attachedPicture(Object stream) {
        Object d = stream instanceof Map ? ((Map<?, ?>) stream).get("disposition") : null;
        Double pic = number(d, "attached_pic");
        return pic != null && pic > 0;
    }

    private static String clean(String s) {
        return s == null || s.trim().isEmpty() || s.equalsIgnoreCase("und") ? null : s.trim();
    }

    /** A number member; ffprobe gives durations as strings. */
    private static Double number(Object map, String key) {
        if (!(map instanceof Map)) {
            return null;
        }
        Object v = ((Map<?, ?>) map).get(key);
        if (v instanceof Double) {
            return (Double) v;
        }
        if (v instanceof String) {
            try {
                double d = Double.parseDouble((String) v);
                return Double.isFinite(d) ? d : null;
            } catch (NumberFormatException e) {
                return null;
            }
        }
        return null;
    }

    private static Integer integer(Double d) {
        return d == null || d <= 0 ? null : d.intValue();
    }

    /** Whether a browser plays the file as it is: its container and codecs, or with no info its extension. */
    public static boolean directPlay(String fileName, MediaInfo info) {
        String name = fileName == null ? "" : fileName.toLowerCase(Locale.ROOT);
        int dot = name.lastIndexOf('.');
        String ext = dot < 0 ? "" : name.substring(dot + 1);
        boolean mp4 = ext.equals("mp4") || ext.equals("m4v");
        boolean webm = ext.equals("webm");
        if (!mp4 && !webm) {
            return false;
        }
        if (info == null) {
            return true;
        }
        Set<String> videos = mp4 ? MP4_VIDEO : WEBM_VIDEO;
        Set<String> audios = mp4 ? MP4_AUDIO : WEBM_AUDIO;
        return (info.videoCodec == null || videos.contains(info.videoCodec))
                && (info.audioCodec == null || audios.contains(info.audioCodec))
                && (info.videoCodec != null || info.audioCodec != null);
    }

    @Override
    public String toString() {
        return "duration " + duration + ", " + width + "x" + height + ", " + videoCodec + "/" + audioCodec
                + ", subtitles " + subtitleStreams;
    }
}
