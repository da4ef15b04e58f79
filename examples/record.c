/*
 * Plays an H.264 file in Annex B form as if a camera sent it, and records what comes, as it is, into an AVI file:
 *
 *     record camera.h264 camera.avi
 *
 * The same frames go to a live channel and to an AVI channel; neither waits for the other. A program with a window gives it
 * in ChannelSettings; this one counts the pictures that it gets in memory.
 */
#include "annexb.h"
#include <corvane/movarix.h>
#include <unistd.h>

static void onPicture(void* context, const PseudoFrame* frame)
{
    *(volatile unsigned*)context += frame->data != NULL;
}

int main(int argc, char** argv)
{
    AnnexB in;
    if (argc != 3 || !annexbOpen(&in, argv[1])) {
        fprintf(stderr, "usage: record IN.h264 OUT.avi\n");
        return 2;
    }
    void *instance = NULL, *live = NULL, *avi = NULL;
    volatile unsigned shown = 0;
    Corvane_Initial(&instance, NULL, NULL, 0, 0, 0, CORVANE_VERSION, 0);
    Corvane_CreateChannel(instance, &live, NULL);
    Corvane_RegisterRawDataCallback(live, onPicture, (void*)&shown, CORVANE_PICTURE_I420, 0);
    Corvane_StartChannel(live, 0);

    const MovarixStart start = {.recordSize = sizeof start, .flags = MOVARIX_START_REPLACE, .path = argv[2]};
    if (Corvane_CreateLiveAVIChannel(instance, &avi) == Status_WrongChannelType) {
        fprintf(stderr, "Movarix.so is not there\n");
        return 1;
    }
    if ((int32_t)Corvane_StartAVIChannel(avi, (uint64_t)(uintptr_t)&start) < 0) {
        fprintf(stderr, "%s cannot be written\n", argv[2]);
        return 1;
    }
    MediaFrameHeader frame;
    uint32_t status = Status_Ok;
    while ((int32_t)status >= 0 && annexbNext(&in, &frame)) {
        Corvane_InputEncodedMediaFrame(live, &frame);
        status = Corvane_InputAVIMedia(avi, (uint64_t)(uintptr_t)&frame);
        usleep(40000); /* a camera of 25 pictures a second */
    }
    if ((int32_t)status < 0)
        fprintf(stderr, "recording ends: 0x%08X\n", status); /* a full disk, say; the live picture goes on */
    uint64_t bytes = 0;
    Corvane_StopAVIChannel(avi);
    Corvane_GetCurrentAVIFileSize(avi, (uint64_t)(uintptr_t)&bytes);
    Corvane_DeleteAVIChannel(instance, &avi);
    Corvane_Release(&instance);
    printf("shown %u of %u pictures, recorded %llu bytes\n", shown, in.count, (unsigned long long)bytes);
    free(in.data);
    return (int32_t)status < 0 || bytes == 0;
}
