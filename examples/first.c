/* Plays one encoded H.264 key frame from a file and prints the size of its picture. */
#include <corvane/corvane.h>
#include <stdio.h>
#include <unistd.h>

static void onPicture(void* seen, const PseudoFrame* frame)
{
    printf("picture %u x %u, %u bytes\n", frame->width, frame->height, frame->size);
    *(volatile int*)seen = 1;
}

int main(int argc, char** argv)
{
    static uint8_t bytes[1 << 20];
    FILE* file = argc > 1 ? fopen(argv[1], "rb") : NULL;
    if (!file) return 2;
    MediaFrameHeader frame = {.data = bytes, .recordSize = sizeof frame, .streamType = CORVANE_STREAM_H264};
    frame.payloadSize = (uint32_t)fread(bytes, 1, sizeof bytes, file);
    fclose(file);
    void *instance = NULL, *channel = NULL;
    volatile int seen = 0;
    Corvane_Initial(&instance, NULL, NULL, 0, 0, 0, CORVANE_VERSION, 0);
    Corvane_CreateChannel(instance, &channel, NULL);
    Corvane_RegisterRawDataCallback(channel, onPicture, (void*)&seen, CORVANE_PICTURE_BGRA32, 0);
    Corvane_StartChannel(channel, 0);
    if (Corvane_InputEncodedMediaFrame(channel, &frame) == Status_Ok)
        for (int i = 0; i < 500 && !seen; ++i) usleep(10000);
    Corvane_Release(&instance);
    return seen ? 0 : 1;
}
