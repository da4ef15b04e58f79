/*
 * Plays sound of G.711 (A-law, 8000 Hz, one channel, no header) and writes what was decoded, before the volume counts, as
 * WAV:
 *
 *     ffmpeg -i speech.wav -ar 8000 -ac 1 -f alaw speech.alaw
 *     sound_to_wav speech.alaw decoded.wav
 *
 * Raw sound comes from the thread of the sound device. On a machine without one, SDL_AUDIODRIVER=dummy plays to nobody.
 */
#include <corvane/corvane.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>

enum { RATE = 8000, CHANNELS = 1, FRAME_MS = 20, FRAME_BYTES = RATE / 1000 * FRAME_MS };

typedef struct Wav {
    FILE* file;
    uint32_t bytes; /* of samples */
} Wav;

static void putNumber(uint8_t* to, uint32_t value, int bytes)
{
    for (int i = 0; i < bytes; ++i) to[i] = (uint8_t)(value >> 8 * i);
}

static void writeHeader(const Wav* wav)
{
    const uint32_t block = 2 * CHANNELS;
    uint8_t header[44] = "RIFF....WAVEfmt ";
    putNumber(header + 4, wav->bytes + 36, 4);
    putNumber(header + 16, 16, 4);
    putNumber(header + 20, 1, 2); /* linear samples */
    putNumber(header + 22, CHANNELS, 2);
    putNumber(header + 24, RATE, 4);
    putNumber(header + 28, RATE * block, 4);
    putNumber(header + 32, block, 2);
    putNumber(header + 34, 16, 2);
    memcpy(header + 36, "data", 4);
    putNumber(header + 40, wav->bytes, 4);
    rewind(wav->file);
    fwrite(header, 1, sizeof header, wav->file);
}

static void onRaw(void* context, uint32_t code, void* record)
{
    Wav* const wav = context;
    if (code == CORVANE_RAW_SOUND) {
        const RawAudioInfo* const sound = record;
        wav->bytes += (uint32_t)fwrite(sound->samples, 1, sound->size, wav->file);
    }
}

int main(int argc, char** argv)
{
    FILE* const in = argc == 3 ? fopen(argv[1], "rb") : NULL;
    Wav wav = {argc == 3 ? fopen(argv[2], "wb") : NULL, 0};
    if (!in || !wav.file) {
        fprintf(stderr, "usage: sound_to_wav IN.alaw OUT.wav\n");
        return 2;
    }
    writeHeader(&wav); /* its room: the sizes follow at the end */

    void *instance = NULL, *channel = NULL;
    Corvane_Initial(&instance, NULL, NULL, 0, 0, 0, CORVANE_VERSION, 0);
    Corvane_CreateChannel(instance, &channel, NULL);
    Corvane_SetChannelOption(channel, CORVANE_OPTION_MEDIA_MODE, CORVANE_MEDIA_AUDIO, 0); /* paced by the sound's times */
    Corvane_SetChannelOption(channel, CORVANE_OPTION_RAW_CALLBACK, (uint64_t)(uintptr_t)&wav, (uint64_t)(uintptr_t)onRaw);
    Corvane_StartChannel(channel, 0);

    uint8_t payload[FRAME_BYTES];
    MediaFrameHeader frame = {.data = payload, .recordSize = sizeof frame, .streamType = CORVANE_STREAM_ALAW};
    frame.audioSampleRate = RATE;
    frame.audioChannels = CHANNELS;
    frame.audioBlockCount = 1;
    ChannelStatistics now = {.recordSize = sizeof now};
    for (uint32_t ms = 0; (frame.payloadSize = (uint32_t)fread(payload, 1, sizeof payload, in)) > 0; ms += FRAME_MS) {
        frame.timeSeconds = frame.streamSeconds = ms / 1000;
        frame.timeMilliseconds = ms % 1000;
        while (Corvane_InputEncodedMediaFrame(channel, &frame) == Status_QueueFull) usleep(FRAME_MS * 1000);
    }
    do { /* until every frame was heard or lost */
        usleep(FRAME_MS * 1000);
        Corvane_GetChannelStatistics(channel, &now);
    } while (now.soundHeard + now.soundLostRing + now.soundLostDecoder + now.soundNotPlayed < now.framesTaken);
    Corvane_Release(&instance); /* after it no callback runs */

    writeHeader(&wav);
    fclose(in);
    printf("%u bytes; frames heard %u of %u\n", wav.bytes, (unsigned)now.soundHeard, (unsigned)now.framesTaken);
    return fclose(wav.file) == 0 && wav.bytes > 0 ? 0 : 1;
}
