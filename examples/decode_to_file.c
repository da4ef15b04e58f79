/*
 * Decodes an H.264 file in Annex B form, as fast as it goes, and appends every picture to a file: planes Y, U, V, without a
 * channel that presents.
 *
 *     decode_to_file camera.h264 camera.i420
 *     ffplay -f rawvideo -pixel_format yuv420p -video_size 1920x1080 camera.i420
 */
#include "annexb.h"

int main(int argc, char** argv)
{
    AnnexB in;
    FILE* const out = argc == 3 ? fopen(argv[2], "wb") : NULL;
    if (!out || !annexbOpen(&in, argv[1])) {
        fprintf(stderr, "usage: decode_to_file IN.h264 OUT.i420\n");
        return 2;
    }
    void *instance = NULL, *channel = NULL;
    const DecoderChannelSettings settings = {.format = CORVANE_PICTURE_I420};
    Corvane_Initial(&instance, NULL, NULL, 0, 0, 0, CORVANE_VERSION, CORVANE_FLAG_DECODE_ONLY);
    Corvane_CreateDecoderChannel(instance, &channel, &settings);

    MediaFrameHeader frame;
    DecodedVideoInfo picture = {0};
    unsigned written = 0, failed = 0;
    while (annexbNext(&in, &frame)) {
        uint32_t size = 0; /* stays 0 where this frame brings no picture */
        uint32_t status = Corvane_DecodeVideo(channel, &frame, &picture, &size);
        while (status == Status_BufferTooSmall) { /* the picture stays, and can be fetched */
            picture.capacity = picture.capacity ? 2 * picture.capacity : 1 << 20;
            free(picture.buffer);
            if (!(picture.buffer = malloc(picture.capacity))) return 1;
            status = Corvane_GetDecodedVideoFrame(channel, 0, &picture, CORVANE_PICTURE_I420, 0, &size);
        }
        failed += status != Status_Ok;
        if (size && fwrite(picture.pixels, 1, size, out) == size) ++written;
    }
    Corvane_DeleteDecoderChannel(instance, &channel);
    Corvane_Release(&instance);
    printf("%u pictures of %u x %u, %u frames failed\n", written, picture.width, picture.height, failed);
    free(picture.buffer);
    free(in.data);
    return fclose(out) == 0 && written ? 0 : 1;
}
