/* A small form for accessibility and input tests: a text field named "Name", a "Save" button
 * and a label that shows the field's text once Save is clicked. The window's title is argv[1]
 * ("Quillo test form" by default). */

#include <gtk/gtk.h>

static void on_save(GtkButton* button, gpointer data) {
    (void)button;
    GtkWidget** widgets = data;
    gtk_label_set_text(GTK_LABEL(widgets[1]), gtk_entry_get_text(GTK_ENTRY(widgets[0])));
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
    gtk_box_pack_start(GTK_BOX(box), widgets[1], FALSE, FALSE, 0);
    g_signal_connect(save, "clicked", G_CALLBACK(on_save), widgets);

    gtk_widget_show_all(window);
    gtk_widget_grab_focus(widgets[0]);
    gtk_main();
    return 0;
}
