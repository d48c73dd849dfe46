/* A small form for accessibility and input tests: a text field named "Name", a "Save" button
 * and a label that shows the field's text once Save is clicked; below them a "Volume" slider,
 * a scrollable list of lines and a "Menu" button with two items. The status label says what
 * happened last ("Volume 80", "Scrolled 120", "Chose Second", "Saved 5 characters"). The window's title is argv[1]
 * ("Quillo test form" by default). */

#include <gtk/gtk.h>

static GtkWidget* status;

static void on_save(GtkButton* button, gpointer data) {
    (void)button;
    GtkWidget** widgets = data;
    const char* text = gtk_entry_get_text(GTK_ENTRY(widgets[0]));
    gtk_label_set_text(GTK_LABEL(widgets[1]), text);
    char count[64];
    g_snprintf(count, sizeof count, "Saved %ld characters", g_utf8_strlen(text, -1));
    gtk_label_set_text(GTK_LABEL(status), count);
}

static void on_volume(GtkRange* range, gpointer data) {
    (void)data;
    char text[64];
    g_snprintf(text, sizeof text, "Volume %d", (int)gtk_range_get_value(range));
    gtk_label_set_text(GTK_LABEL(status), text);
}

static void on_scrolled(GtkAdjustment* adjustment, gpointer data) {
    (void)data;
    char text[64];
    g_snprintf(text, sizeof text, "Scrolled %d", (int)gtk_adjustment_get_value(adjustment));
    gtk_label_set_text(GTK_LABEL(status), text);
}

static void on_item(GtkMenuItem* item, gpointer data) {
    (void)data;
    char text[64];
    g_snprintf(text, sizeof text, "Chose %s", gtk_menu_item_get_label(item));
    gtk_label_set_text(GTK_LABEL(status), text);
}

int main(int argc, char** argv) {
    const char* title = argc > 1 ? argv[1] : "Quillo test form";
    gtk_init(&argc, &argv);

    GtkWidget* window = gtk_window_new(GTK_WINDOW_TOPLEVEL);
    gtk_window_set_title(GTK_WINDOW(window), title);
    gtk_window_set_default_size(GTK_WINDOW(window), 360, 160);
    g_signal_connect(window, "destroy", G_CALLBACK(gtk_main_quit), NULL);

    GtkWidget* box = gtk_box_new(GTK_ORIENTATION_VERTICAL, 8);
    gtk_container_set_border_width(GTK_CONTAINER(box), 12);
    gtk_container_add(GTK_CONTAINER(window), box);

    static GtkWidget* widgets[2];
    widgets[0] = gtk_entry_new();
    atk_object_set_name(gtk_widget_get_accessible(widgets[0]), "Name");
    gtk_box_pack_start(GTK_BOX(box), widgets[0], FALSE, FALSE, 0);

    GtkWidget* save = gtk_button_new_with_label("Save");
    gtk_box_pack_start(GTK_BOX(box), save, FALSE, FALSE, 0);

    widgets[1] = gtk_label_new("");
    /* A long text is cut short on screen (its accessible name stays whole), so the window keeps
     * its size. */
    gtk_label_set_ellipsize(GTK_LABEL(widgets[1]), PANGO_ELLIPSIZE_END);
    gtk_label_set_max_width_chars(GTK_LABEL(widgets[1]), 30);
    gtk_box_pack_start(GTK_BOX(box), widgets[1], FALSE, FALSE, 0);
    g_signal_connect(save, "clicked", G_CALLBACK(on_save), widgets);

    /* The controls the pointer tests drive, below the first three. */
    GtkWidget* volume = gtk_scale_new_with_range(GTK_ORIENTATION_HORIZONTAL, 0, 100, 1);
    gtk_scale_set_draw_value(GTK_SCALE(volume), FALSE);
    atk_object_set_name(gtk_widget_get_accessible(volume), "Volume");
    g_signal_connect(volume, "value-changed", G_CALLBACK(on_volume), NULL);
    gtk_box_pack_start(GTK_BOX(box), volume, FALSE, FALSE, 0);

    GtkWidget* scroller = gtk_scrolled_window_new(NULL, NULL);
    gtk_widget_set_size_request(scroller, -1, 80);
    GString* lines = g_string_new("");
    for (int i = 1; i <= 80; ++i) {
        g_string_append_printf(lines, "Line %d of the long text\n", i);
    }
    gtk_container_add(GTK_CONTAINER(scroller), gtk_label_new(lines->str));
    g_string_free(lines, TRUE);
    g_signal_connect(gtk_scrolled_window_get_vadjustment(GTK_SCROLLED_WINDOW(scroller)),
                     "value-changed", G_CALLBACK(on_scrolled), NULL);
    gtk_box_pack_start(GTK_BOX(box), scroller, FALSE, FALSE, 0);

    GtkWidget* menu = gtk_menu_new();
    for (int i = 0; i < 2; ++i) {
        GtkWidget* item = gtk_menu_item_new_with_label(i == 0 ? "First" : "Second");
        g_signal_connect(item, "activate", G_CALLBACK(on_item), NULL);
        gtk_menu_shell_append(GTK_MENU_SHELL(menu), item);
    }
    gtk_widget_show_all(menu);
    GtkWidget* opener = gtk_menu_button_new();
    gtk_button_set_label(GTK_BUTTON(opener), "Menu");
    gtk_menu_button_set_popup(GTK_MENU_BUTTON(opener), menu);
    gtk_box_pack_start(GTK_BOX(box), opener, FALSE, FALSE, 0);

    status = gtk_label_new("Ready");
    gtk_box_pack_start(GTK_BOX(box), status, FALSE, FALSE, 0);
    /* Room below the controls, so the menu opens inside the window. */
    gtk_box_pack_start(GTK_BOX(box), gtk_label_new(""), TRUE, TRUE, 0);
    gtk_window_set_default_size(GTK_WINDOW(window), 360, 420);

    gtk_widget_show_all(window);
    gtk_widget_grab_focus(widgets[0]);
    gtk_main();
    return 0;
}
