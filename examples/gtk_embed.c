/* Plays an H.264 Annex B file in a drawing area of a GTK 3 window, under a row with a button that pauses. */
#include <gdk/gdkx.h>
#include <gtk/gtk.h>

#include "annexb.h"

typedef struct Play {
    AnnexB file;
    MediaFrameHeader frame;
    int more, paused;
    void *instance, *channel;
    GtkWidget* label;
} Play;

/* 25 times a second. */
static gboolean feed(gpointer data)
{
    Play* play = data;
    char text[32];
    if (play->paused || !play->channel) return G_SOURCE_CONTINUE;
    if (Corvane_InputEncodedMediaFrame(play->channel, &play->frame) != Status_QueueFull)
        play->more = annexbNext(&play->file, &play->frame);
    snprintf(text, sizeof text, "%.1f s", play->file.count / 25.0);
    gtk_label_set_text(GTK_LABEL(play->label), text);
    if (play->more) return G_SOURCE_CONTINUE;
    gtk_main_quit();
    return G_SOURCE_REMOVE;
}

static void pauseToggled(GtkToggleButton* button, gpointer data)
{
    ((Play*)data)->paused = gtk_toggle_button_get_active(button);
}

/* The area has a window of the server from here on: the channel gets it. */
static void areaRealized(GtkWidget* area, gpointer data)
{
    Play* play = data;
    GdkWindow* window = gtk_widget_get_window(area);
    gdk_window_ensure_native(window);
    ChannelSettings settings = {.window = gdk_x11_window_get_xid(window)};
    gdk_display_sync(gdk_window_get_display(window)); /* the server knows the window before the library asks for it */
    Corvane_CreateChannel(play->instance, &play->channel, &settings);
    Corvane_StartChannel(play->channel, 1);
}

/* The window is about to go: the channel goes first. */
static void areaUnrealized(GtkWidget* area, gpointer data)
{
    Play* play = data;
    (void)area;
    Corvane_DeleteChannel(play->instance, &play->channel);
}

static GtkWidget* makeArea(Play* play)
{
    GtkWidget* area = gtk_drawing_area_new();
    gtk_widget_set_size_request(area, 320, 240);
    /* GTK must not draw here: it would wipe the picture on each of its frames. */
    gtk_widget_set_app_paintable(area, TRUE);
    G_GNUC_BEGIN_IGNORE_DEPRECATIONS
    gtk_widget_set_double_buffered(area, FALSE);
    G_GNUC_END_IGNORE_DEPRECATIONS
    g_signal_connect(area, "realize", G_CALLBACK(areaRealized), play);
    g_signal_connect(area, "unrealize", G_CALLBACK(areaUnrealized), play);
    return area;
}

static void makeWindow(Play* play)
{
    GtkWidget* window = gtk_window_new(GTK_WINDOW_TOPLEVEL);
    GtkWidget* column = gtk_box_new(GTK_ORIENTATION_VERTICAL, 6);
    GtkWidget* row = gtk_box_new(GTK_ORIENTATION_HORIZONTAL, 6);
    GtkWidget* button = gtk_toggle_button_new_with_label("Pause");
    play->label = gtk_label_new("");
    gtk_window_set_title(GTK_WINDOW(window), "GTK embed");
    gtk_window_set_default_size(GTK_WINDOW(window), 640, 520);
    gtk_container_set_border_width(GTK_CONTAINER(window), 6);
    gtk_container_add(GTK_CONTAINER(window), column);
    gtk_box_pack_start(GTK_BOX(row), button, FALSE, FALSE, 0);
    gtk_box_pack_start(GTK_BOX(row), play->label, FALSE, FALSE, 0);
    gtk_box_pack_start(GTK_BOX(column), row, FALSE, FALSE, 0);
    gtk_box_pack_start(GTK_BOX(column), makeArea(play), TRUE, TRUE, 0);
    g_signal_connect(button, "toggled", G_CALLBACK(pauseToggled), play);
    g_signal_connect(window, "destroy", G_CALLBACK(gtk_main_quit), NULL);
    gtk_widget_show_all(window);
}

int main(int argc, char** argv)
{
    static Play play;
    gdk_set_allowed_backends("x11");
    if (argc < 2 || !annexbOpen(&play.file, argv[1]) || !gtk_init_check(&argc, &argv)) return 2;
    play.more = annexbNext(&play.file, &play.frame);
    Corvane_Initial(&play.instance, NULL, NULL, 0, 0, 0, CORVANE_VERSION, 0);
    makeWindow(&play);
    g_timeout_add(40, feed, &play);
    gtk_main();
    Corvane_Release(&play.instance);
    free(play.file.data);
    return 0;
}
