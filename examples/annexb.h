/* Splits an H.264 Annex B file into encoded pictures and fills the library's records: 25 pictures a second. */
#ifndef ANNEXB_H
#define ANNEXB_H

#include <corvane/corvane.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>

typedef struct AnnexB {
    uint8_t* data;
    size_t size, at; /* bytes */
    uint32_t count;  /* pictures handed out */
} AnnexB;

/* 0 when the file cannot be read. What `data` holds is freed by the caller. */
static int annexbOpen(AnnexB* file, const char* path)
{
    FILE* in = fopen(path, "rb");
    memset(file, 0, sizeof *file);
    if (!in) return 0;
    fseek(in, 0, SEEK_END);
    const long size = ftell(in);
    rewind(in);
    file->data = size > 0 ? malloc((size_t)size) : NULL;
    if (file->data) file->size = fread(file->data, 1, (size_t)size, in);
    fclose(in);
    return file->size > 0;
}

/* The next start code from `at` on, or the end. */
static size_t annexbStart(const AnnexB* file, size_t at)
{
    for (; at + 4 < file->size; ++at)
        if (file->data[at] == 0 && file->data[at + 1] == 0 && file->data[at + 2] == 1) return at;
    return file->size;
}

/* The next picture with the parameter sets in front of it. 0 at the end. */
static int annexbNext(AnnexB* file, MediaFrameHeader* frame)
{
    const size_t begin = annexbStart(file, file->at);
    size_t end = begin;
    int picture = 0, key = 0;
    while (end < file->size) {
        const unsigned type = file->data[end + 3] & 31;
        const int slice = type >= 1 && type <= 5;
        const int first = slice && (file->data[end + 4] & 0x80); /* slice of macroblock 0 */
        if (picture && (first || (type >= 6 && type <= 9))) break; /* the next picture's */
        picture |= slice;
        key |= type == 5;
        end = annexbStart(file, end + 3);
    }
    if (!picture) return 0;
    const uint32_t ms = 40 * file->count++;
    memset(frame, 0, sizeof *frame);
    frame->recordSize = sizeof *frame;
    frame->data = file->data + begin;
    frame->payloadSize = (uint32_t)(end - begin);
    frame->streamType = CORVANE_STREAM_H264;
    frame->frameType = !key;
    frame->streamSeconds = ms / 1000;
    frame->timeMilliseconds = ms % 1000;
    frame->timeSeconds = (uint32_t)time(NULL);
    file->at = end;
    return 1;
}

#endif
