/* The header alone, as strict C99, with the loop that it prints in its first lines. */
#include <corvane/corvane.h>

extern int nextFrame(MediaFrameHeader* header);
extern void onPicture(void* context, const PseudoFrame* frame);
void theWholeLoop(void* context);

void theWholeLoop(void* context) {
    MediaFrameHeader header;
    void* instance = NULL;
    void* channel = NULL;
    ChannelSettings settings = {0};
    Corvane_Initial(&instance, NULL, NULL, 0, 0, 0, CORVANE_VERSION, 0);
    Corvane_CreateChannel(instance, &channel, &settings);
    Corvane_RegisterRawDataCallback(channel, onPicture, context, CORVANE_PICTURE_BGRA32, 0);
    Corvane_StartChannel(channel, 0);
    while (nextFrame(&header))
        Corvane_InputEncodedMediaFrame(channel, &header);
    Corvane_StopChannel(channel);
    Corvane_DeleteChannel(instance, &channel);
    Corvane_Release(&instance);
}
