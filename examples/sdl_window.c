/*
 * Plays an H.264 Annex B file in a window of SDL 2, and with it a file of sound (A-law, 8000 Hz, one channel, no header):
 *
 *     sdl_window stream.h264 [speech.alaw]
 *
 * Space pauses, f is full screen, q or closing the window quits.
 */
#include <SDL.h>
#include <SDL_syswm.h>

#include "annexb.h"

typedef struct Play {
    SDL_Window* window;
    int paused, ended;
} Play;

static void press(Play* play, SDL_Keycode key)
{
    if (key == SDLK_SPACE) play->paused = !play->paused;
    if (key == SDLK_q || key == SDLK_ESCAPE) play->ended = 1;
    if (key == SDLK_f) {
        const Uint32 full = SDL_GetWindowFlags(play->window) & SDL_WINDOW_FULLSCREEN_DESKTOP;
        SDL_SetWindowFullscreen(play->window, full ? 0 : SDL_WINDOW_FULLSCREEN_DESKTOP);
    }
}

/* Does what comes until `due`, in SDL's milliseconds. */
static void attend(Play* play, Uint32 due)
{
    SDL_Event event;
    for (;;) {
        const Sint32 left = (Sint32)(due - SDL_GetTicks());
        if (play->ended || !SDL_WaitEventTimeout(&event, left > 0 ? left : 0)) return;
        if (event.type == SDL_QUIT) play->ended = 1;
        if (event.type == SDL_KEYDOWN) press(play, event.key.keysym.sym);
        if (event.type == SDL_WINDOWEVENT && event.window.event == SDL_WINDOWEVENT_SIZE_CHANGED)
            printf("window %d x %d\n", event.window.data1, event.window.data2); /* the picture follows by itself */
    }
}

/* The X11 id of SDL's window, 0 where SDL shows it by other means. */
static uintptr_t windowId(SDL_Window* window)
{
    SDL_SysWMinfo info;
    SDL_VERSION(&info.version);
    if (!window || !SDL_GetWindowWMInfo(window, &info) || info.subsystem != SDL_SYSWM_X11) return 0;
    return info.info.x11.window;
}

/* Feeds the sound that goes with a picture, of the same time and length. */
static void feedSound(void* channel, AnnexB* sound, const MediaFrameHeader* picture)
{
    const size_t left = sound->size - sound->at;
    MediaFrameHeader frame = *picture;
    frame.data = sound->data + sound->at;
    frame.payloadSize = left < 320 ? (uint32_t)left : 320; /* 40 ms */
    frame.streamType = CORVANE_STREAM_ALAW;
    frame.audioSampleRate = 8000;
    frame.audioChannels = 1;
    frame.audioBlockCount = 1;
    sound->at += frame.payloadSize;
    if (left > 0) Corvane_InputEncodedMediaFrame(channel, &frame);
}

int main(int argc, char** argv)
{
    AnnexB file, sound = {0};
    MediaFrameHeader frame;
    void *instance = NULL, *channel = NULL;
    Play play = {0};
    if (argc < 2 || !annexbOpen(&file, argv[1]) || (argc > 2 && !annexbOpen(&sound, argv[2]))) return 2;
    SDL_SetHint(SDL_HINT_VIDEODRIVER, "x11");
    if (SDL_Init(SDL_INIT_VIDEO) != 0) {
        fprintf(stderr, "%s\n", SDL_GetError());
        return 2;
    }
    play.window = SDL_CreateWindow("SDL window", SDL_WINDOWPOS_UNDEFINED, SDL_WINDOWPOS_UNDEFINED, 640, 480,
                                   SDL_WINDOW_RESIZABLE);

    /* No SDL renderer and no SDL surface on this window: the library draws on it. */
    ChannelSettings settings = {.window = windowId(play.window)};
    if (settings.window == 0) return 2;
    Corvane_Initial(&instance, NULL, NULL, 0, 0, 0, CORVANE_VERSION, 0);
    Corvane_CreateChannel(instance, &channel, &settings);
    Corvane_StartChannel(channel, 1);

    Uint32 due = SDL_GetTicks();
    int more = annexbNext(&file, &frame);
    while (more && !play.ended) {
        if (!play.paused && Corvane_InputEncodedMediaFrame(channel, &frame) != Status_QueueFull) {
            feedSound(channel, &sound, &frame);
            more = annexbNext(&file, &frame);
        }
        attend(&play, due += 40);
    }

    Corvane_Release(&instance); /* before the window goes */
    SDL_DestroyWindow(play.window);
    SDL_Quit();
    free(file.data);
    free(sound.data);
    return 0;
}
