#include "Options.h"

const char kHelp[] =
    R"(corvane-play: plays a video stream through libcorvane.

usage: corvane-play [options] FILE|URL

  --fill                  pictures fill the window, or their cell of the wall, whatever their proportions
  --size WxH              of the window; with --headless the largest picture
  --window ID             play in that X11 window instead of a new one
  --wall N                the stream on N channels in a grid of one window, 1 to 64; their pictures do not come in time
  --renderer NAME         default, plain, compose (text may lie on the picture), gdi or stretch (as plain)
  --background RRGGBB     colour of the empty window, and of margins with the plain renderer
  --colours NAME          signalled (default: by the matrix and range that the stream signals) or plain (full-range BT.601)
  --logo FILE             PNG or BMP that the window shows until the first picture
  --screenshot FILE[@S]   write the window as PNG after S seconds of stream, else at the end

  --headless              no window: pictures go to memory
  --contact-sheet FILE    write a PNG of pictures spread over the stream, each with its number and time (with --headless)
  --format NAME           picture format: bgra (default), bgr, i420, bgra-flip, bgr-flip (with --headless)

  --raw FORMAT FILE       append every picture of the first channel, as decoded, to FILE: i420, yv12, nv12, yuy2, uyvy, bgr,
                          bgra, rgb, rgba, bgr555, bgr565, rgb555, rgb565, or files bmp, bgra-bmp, rgb555-bmp, rgb565-bmp, jpeg
  --raw-sound FILE        write the sound of the first channel, as decoded and played, as WAV
  --record FILE.avi       record the stream into FILE.avi while it plays, as it is
  --compress TYPE         record its pictures as jpeg, mpeg4 or h264 (with --record)
  --decode-only           decode as fast as it goes and show nothing: for --contact-sheet, --raw, --raw-sound, --record
  --plugins DIR           take decoders from the plug-ins in DIR (see --decoder)
  --decoder KIND          software (default), cuvid, dxva2 or quicksync; software where the plug-in gives none
  --info                  print what the stream-info callback of the first channel gets: code, a, b

  --mute                  no sound until the key 0; of a wall the first channel is heard, if nothing else is said
  --volume N              0 to 100; 100 is the level of the stream

  --still-format NAME     png (default), jpeg, bmp or raw (planes Y, U, V without gaps)
  --snapshot-every S      save a still of the first channel every S seconds of stream

  --rotate DEGREES        rotate every picture (windows; formats bgr, bgr-flip, i420)
  --buffer MS             jitter buffer of the channel
  --threads N             decoding threads, 0 automatic
  --mode N                frames decoded: 0 all, 1 key frames, 2 to 8 thinned
  --channels N            the same stream on N channels at once, 1 to 256; those without a window play into memory
  --loop N                play N times
  --seconds S             end after S seconds of stream
  --stats FILE            write what was measured as JSON
  --quiet                 no status line
  -h, --help              this text
  --version

Keys, for the channel under the pointer:
  s        save a still of the decoded picture, or of the part zoomed into: corvane-NNN with the extension of its format
  z, b     zoom into the middle or back to the whole picture; one zoom back
  o        overview in the corner
  m        margins with the time
  p        pictures keep their proportions, or fill their place
  d        deinterlace pictures that are marked interlaced
  k        next kind of scaling: nearest pixel, bilinear, bicubic, Lanczos
  0        sound off or on
  +, -     louder, softer
  Return   show this channel of a wall alone, and back
A frame marks the channel of a wall that the keys act on, another the overview and what is zoomed into.
For the window:
  space    pause
  w        save what the window shows as PNG: the name of --screenshot, else corvane-NNN.png
  f        full screen
  q, Escape  quit

Mouse: drag a rectangle to zoom into it, wheel to zoom at the pointer, right button one zoom back, double click the whole
picture.

The status line shows stream time, pictures a second, frames and bytes that wait, pictures shown and lost, the age of the
shown picture since its frame was fed, processor use, sound (on, off, none), and what a key has changed. With several channels it shows their sums,
and the greatest age. Ctrl-C ends the program with what was measured so far.

The end of the file is the end of buffering: what waits is played. Where nothing was shown the program says why, and ends
with 1.

--stats: "committed" are pictures that were decoded and are to be shown, "presented" those that were put on the window or
handed over, "not_presented" those that never were, over all channels; "lost" are frames that ended without a picture, with
the last cause in words; of sound "taken" are the frames that left the queue, each of which was heard or lost.
)";
