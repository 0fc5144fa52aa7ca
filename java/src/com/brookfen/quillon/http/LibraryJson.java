package com.brookfen.quillon.http;

import com.brookfen.quillon.library.Folder;
import com.brookfen.quillon.library.Item;
import com.brookfen.quillon.library.Section;
import com.brookfen.quillon.library.Snapshot;
import com.brookfen.quillon.media.MediaInfo;
import com.brookfen.quillon.media.MediaServices;
import com.brookfen.quillon.server.Json;
import com.brookfen.quillon.subtitles.SubtitleTrack;

import java.io.IOException;
import java.io.Writer;
import java.util.List;

/**
 * The library API's documents, written out as they are made (a large library is never
 * held whole as text). Metadata not probed yet is null, never waited for.
 */
final class LibraryJson {
    private LibraryJson() {
    }

    static void library(Writer sb, Snapshot snapshot, MediaServices media) throws IOException {
        sb.append("{\"sections\":[");
        String comma = "";
        for (Section s : snapshot.sections) {
            sb.append(comma).append("{\"id\":").append(Json.quote(s.id)).append(",\"name\":").append(Json.quote(s.name))
                    .append(",\"kind\":").append(Json.quote(s.kind)).append(",\"count\":").append(String.valueOf(s.top.count)).append('}');
            comma = ",";
        }
        sb.append("],\"style\":{\"fontFamily\":").append(Json.quote(media.settings().fontFamily()))
                .append(",\"fontSize\":").append(String.valueOf(media.settings().fontSize())).append("}}");
    }

    static void folder(Writer sb, Folder folder, MediaServices media) throws IOException {
        sb.append("{\"id\":").append(Json.quote(folder.id)).append(",\"name\":").append(Json.quote(folder.name))
                .append(",\"folders\":[");
        String comma = "";
        for (Folder f : folder.folders) {
            sb.append(comma).append("{\"id\":").append(Json.quote(f.id)).append(",\"name\":").append(Json.quote(f.name))
                    .append('}');
            comma = ",";
        }
        sb.append("],\"items\":[");
        comma = "";
        for (Item i : folder.items) {
            sb.append(comma);
            item(sb, i, media);
            comma = ",";
        }
        sb.append("]}");
    }

    static void item(Writer sb, Item item, MediaServices media) throws IOException {
        MediaInfo info = media.metadata().cached(item.file, item.size, item.modified);
        String id = item.id;
        sb.append("{\"id\":").append(Json.quote(id)).append(",\"name\":").append(Json.quote(item.name))
                .append(",\"size\":").append(String.valueOf(item.size))
                .append(",\"duration\":").append(number(info == null ? null : info.duration))
                .append(",\"width\":").append(String.valueOf(info == null ? null : info.width))
                .append(",\"height\":").append(String.valueOf(info == null ? null : info.height))
                .append(",\"videoCodec\":").append(Json.quote(info == null ? null : info.videoCodec))
                .append(",\"audioCodec\":").append(Json.quote(info == null ? null : info.audioCodec))
                .append(",\"directPlay\":").append(String.valueOf(MediaInfo.directPlay(item.fileName(), info)))
                .append(",\"stream\":\"/media/").append(id).append('"')
                .append(",\"hls\":\"/hls/").append(id).append("/index.m3u8\"")
                .append(",\"thumbnail\":\"/thumbnails/").append(id).append(".jpg\"")
                .append(",\"subtitles\":[");
        List<SubtitleTrack> tracks = media.subtitles().tracks(item.file, info);
        for (int n = 0; n < tracks.size(); n++) {
            SubtitleTrack t = tracks.get(n);
            sb.append(n == 0 ? "" : ",").append("{\"label\":").append(Json.quote(t.label()))
                    .append(",\"language\":").append(Json.quote(t.language()))
                    .append(",\"url\":\"/subtitles/").append(id).append('/').append(String.valueOf(n)).append(".vtt\"")
                    .append(",\"embedded\":").append(String.valueOf(t.embedded()))
                    .append(",\"preferred\":").append(String.valueOf(media.subtitles().preferred(t))).append('}');
        }
        sb.append("]}");
    }

    private static String number(Double d) {
        return d == null || d.isNaN() || d.isInfinite() ? "null" : d.toString();
    }
}
