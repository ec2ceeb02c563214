#define ZEL_SOURCE "media/MediaFacts"
#include "media/MediaFacts.h"

#include "media/MediaInfo.h"

namespace ZELd {

MediaFacts MediaFacts::probe(const String& path, const FileFacts& file, int fd)
{
    MediaFacts facts;
    MediaInfo media(path, file, fd);
    facts.inform = media.inform_r();
    facts.format = media.format();
    if (media.videoCount() > 0) {
        facts.width = media.videoWidth(0);
        facts.height = media.videoHeight(0);
        facts.duration = static_cast<uint32_t>(media.videoDurationAsSeconds(0));
    } else if (media.audioCount() > 0) {
        facts.duration = static_cast<uint32_t>(media.audioDurationAsSeconds(0));
    } else if (media.imageCount() > 0) {
        facts.width = media.imageWidth(0);
        facts.height = media.imageHeight(0);
    }
    return facts;
}

} // namespace ZELd
