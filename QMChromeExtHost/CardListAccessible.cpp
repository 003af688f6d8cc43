#include "CardListAccessible.h"

#include <gtk/gtk-a11y.h>
#include <gtk/gtk.h>
#include <wx/stattext.h>
#include <wx/vlbox.h>

#include <cstddef>
#include <utility>

struct Unref {
    void operator()(void* object) const { g_object_unref(object); }
};
template <class T>
using GObjectPtr = std::unique_ptr<T, Unref>;

/// The rows of a list, as objects that screen readers ask. An object may outlive its row.
struct AccessibleRows {
    wxVListBox& list;
    GObjectPtr<AtkObject> box; ///< the list itself
    std::vector<GObjectPtr<AtkObject>> rows;
    int selected = wxNOT_FOUND; ///< the row that was told to be so

    AtkObject* At(int index) const {
        const bool isThere = index >= 0 && static_cast<std::size_t>(index) < rows.size();
        return isThere ? rows[static_cast<std::size_t>(index)].get() : nullptr;
    }
    /// The row where the keyboard is when it is in the list.
    int Current() const { return selected == wxNOT_FOUND ? 0 : selected; }
    bool HasFocus() const {
        return gtk_widget_has_focus(gtk_accessible_get_widget(GTK_ACCESSIBLE(box.get()))) != FALSE;
    }
    void TellFocus() const {
        AtkObject* const row = At(Current());
        if (row == nullptr || !HasFocus())
            return;
        g_signal_emit_by_name(box.get(), "active-descendant-changed", row);
        atk_object_notify_state_change(row, ATK_STATE_FOCUSED, TRUE);
    }
    void Select(int index) {
        list.SetSelection(index);
        // As a user's choice, which everybody hears of.
        wxCommandEvent event(wxEVT_LISTBOX, list.GetId());
        list.ProcessWindowEvent(event);
    }
};

namespace {

// One row.

struct CardRow {
    AtkObject base;
    AccessibleRows* owner; ///< null when the row is gone
    int index;
};
struct CardRowClass {
    AtkObjectClass base;
};

void card_row_component_init(AtkComponentIface* component);
G_DEFINE_TYPE_WITH_CODE(CardRow, card_row, ATK_TYPE_OBJECT,
                        G_IMPLEMENT_INTERFACE(ATK_TYPE_COMPONENT, card_row_component_init))

CardRow& RowOf(void* object) { return *static_cast<CardRow*>(object); }

int IndexOfRow(AtkObject* object) { return RowOf(object).owner == nullptr ? -1 : RowOf(object).index; }

AtkStateSet* StatesOfRow(AtkObject* object) {
    AtkStateSet* const states = atk_state_set_new();
    const CardRow& row = RowOf(object);
    if (row.owner == nullptr) {
        atk_state_set_add_state(states, ATK_STATE_DEFUNCT);
        return states;
    }
    for (const AtkStateType state :
         {ATK_STATE_ENABLED, ATK_STATE_SENSITIVE, ATK_STATE_VISIBLE, ATK_STATE_FOCUSABLE})
        atk_state_set_add_state(states, state);
    // "Loading..." is not for choosing, and is not to be called "not selected".
    if (row.owner->selected != wxNOT_FOUND)
        atk_state_set_add_state(states, ATK_STATE_SELECTABLE);
    if (row.owner->list.IsShownOnScreen() && row.owner->list.IsVisible(static_cast<std::size_t>(row.index)))
        atk_state_set_add_state(states, ATK_STATE_SHOWING);
    if (row.index == row.owner->selected)
        atk_state_set_add_state(states, ATK_STATE_SELECTED);
    if (row.index == row.owner->Current() && row.owner->HasFocus())
        atk_state_set_add_state(states, ATK_STATE_FOCUSED);
    return states;
}

void PlaceOfRow(AtkComponent* component, int* x, int* y, int* width, int* height, AtkCoordType relativeTo) {
    *x = *y = *width = *height = 0;
    const CardRow& row = RowOf(component);
    if (row.owner == nullptr)
        return;
    const wxRect place = row.owner->list.GetItemRect(static_cast<std::size_t>(row.index));
    atk_component_get_extents(ATK_COMPONENT(row.owner->box.get()), x, y, width, height, relativeTo);
    *x += place.x;
    *y += place.y;
    *width = place.width;
    *height = place.height;
}

gboolean FocusRow(AtkComponent* component) {
    const CardRow& row = RowOf(component);
    if (row.owner == nullptr)
        return FALSE;
    row.owner->list.SetFocus();
    row.owner->Select(row.index);
    return TRUE;
}

void card_row_init(CardRow*) {}

void card_row_class_init(CardRowClass* rowClass) {
    rowClass->base.get_index_in_parent = IndexOfRow;
    rowClass->base.ref_state_set = StatesOfRow;
}

void card_row_component_init(AtkComponentIface* component) {
    component->get_extents = PlaceOfRow;
    component->grab_focus = FocusRow;
}

// The list. GTK makes the objects of all windows that wx draws itself of this type; those without rows are
// the panels that they were.

struct CardListBox {
    GtkContainerAccessible base;
};
struct CardListBoxClass {
    GtkContainerAccessibleClass base;
};

void card_list_box_selection_init(AtkSelectionIface* selection);
G_DEFINE_TYPE_WITH_CODE(CardListBox, card_list_box, GTK_TYPE_CONTAINER_ACCESSIBLE,
                        G_IMPLEMENT_INTERFACE(ATK_TYPE_SELECTION, card_list_box_selection_init))

constexpr char kRows[] = "quillmark-rows";

/// Null for a window without rows.
AccessibleRows* RowsOf(void* box) {
    return static_cast<AccessibleRows*>(g_object_get_data(G_OBJECT(box), kRows));
}

AtkObject* RefRow(void* box, int index) {
    const AccessibleRows* const rows = RowsOf(box);
    AtkObject* const row = rows == nullptr ? nullptr : rows->At(index);
    return row == nullptr ? nullptr : static_cast<AtkObject*>(g_object_ref(row));
}

AtkObjectClass* PanelClass() { return ATK_OBJECT_CLASS(card_list_box_parent_class); }

int CountRows(AtkObject* box) {
    const AccessibleRows* const rows = RowsOf(box);
    return rows == nullptr ? PanelClass()->get_n_children(box) : static_cast<int>(rows->rows.size());
}

AtkObject* RefChild(AtkObject* box, int index) {
    return RowsOf(box) == nullptr ? PanelClass()->ref_child(box, index) : RefRow(box, index);
}

AtkObject* RefSelected(AtkSelection* box, int) {
    return RowsOf(box) == nullptr ? nullptr : RefRow(box, RowsOf(box)->selected);
}

int CountSelected(AtkSelection* box) {
    return RowsOf(box) != nullptr && RowsOf(box)->selected != wxNOT_FOUND;
}

gboolean IsSelected(AtkSelection* box, int index) {
    return RowsOf(box) != nullptr && index >= 0 && RowsOf(box)->selected == index;
}

gboolean SelectRow(AtkSelection* box, int index) {
    AccessibleRows* const rows = RowsOf(box);
    if (rows == nullptr || rows->At(index) == nullptr)
        return FALSE;
    rows->Select(index);
    return TRUE;
}

/// GTK tells that the keyboard has come to the list; that it is on a row there, is ours to tell.
void OnBoxFocus(AtkObject*, const char*, gboolean hasFocus, void* rows) {
    if (hasFocus)
        static_cast<AccessibleRows*>(rows)->TellFocus();
}

void card_list_box_init(CardListBox*) {}

void card_list_box_class_init(CardListBoxClass* boxClass) {
    ATK_OBJECT_CLASS(boxClass)->get_n_children = CountRows;
    ATK_OBJECT_CLASS(boxClass)->ref_child = RefChild;
}

void card_list_box_selection_init(AtkSelectionIface* selection) {
    selection->ref_selection = RefSelected;
    selection->get_selection_count = CountSelected;
    selection->is_child_selected = IsSelected;
    selection->add_selection = SelectRow;
}

} // namespace

CardListAccessible::CardListAccessible(wxVListBox& list, const char* name)
    : rows_(new AccessibleRows{list, nullptr, {}}) {
    GtkWidget* const area = list.m_wxwindow; // where the rows are drawn
    gtk_widget_class_set_accessible_type(GTK_WIDGET_GET_CLASS(area), card_list_box_get_type());
    AtkObject* const box = gtk_widget_get_accessible(area);
    rows_->box.reset(static_cast<AtkObject*>(g_object_ref(box)));
    atk_object_set_role(box, ATK_ROLE_LIST_BOX);
    atk_object_set_name(box, name);
    g_object_set_data(G_OBJECT(box), kRows, rows_.get());
    g_signal_connect(box, "state-change::focused", G_CALLBACK(OnBoxFocus), rows_.get());
}

CardListAccessible::~CardListAccessible() {
    SetRows({});
    g_object_set_data(G_OBJECT(rows_->box.get()), kRows, nullptr);
    g_signal_handlers_disconnect_by_data(rows_->box.get(), rows_.get());
}

void CardListAccessible::SetRows(const std::vector<std::string>& texts) {
    AtkObject* const box = rows_->box.get();
    while (!rows_->rows.empty()) {
        const GObjectPtr<AtkObject> row = std::move(rows_->rows.back());
        rows_->rows.pop_back();
        RowOf(row.get()).owner = nullptr;
        g_signal_emit_by_name(box, "children-changed::remove", guint(rows_->rows.size()), row.get());
        atk_object_notify_state_change(row.get(), ATK_STATE_DEFUNCT, TRUE);
    }
    rows_->selected = wxNOT_FOUND;
    for (const std::string& text : texts) {
        const int index = static_cast<int>(rows_->rows.size());
        GObjectPtr<AtkObject> row(static_cast<AtkObject*>(g_object_new(card_row_get_type(), nullptr)));
        RowOf(row.get()).owner = rows_.get();
        RowOf(row.get()).index = index;
        atk_object_set_role(row.get(), ATK_ROLE_LIST_ITEM);
        atk_object_set_name(row.get(), text.c_str());
        atk_object_set_parent(row.get(), box);
        rows_->rows.push_back(std::move(row));
        g_signal_emit_by_name(box, "children-changed::add", guint(index), rows_->rows.back().get());
    }
}

void CardListAccessible::TellCurrent() {
    AtkObject* const box = rows_->box.get();
    if (AtkObject* const before = rows_->At(rows_->selected))
        atk_object_notify_state_change(before, ATK_STATE_SELECTED, FALSE);
    rows_->selected = rows_->list.GetSelection();
    if (AtkObject* const now = rows_->At(rows_->selected)) {
        atk_object_notify_state_change(now, ATK_STATE_SELECTED, TRUE);
        g_signal_emit_by_name(box, "selection-changed");
    }
    if (rows_->rows.empty() && rows_->HasFocus())
        atk_object_notify_state_change(box, ATK_STATE_FOCUSED, TRUE);
    else
        rows_->TellFocus();
}

void NameDialogField(const wxWindow& dialog, const wxWindow& field, const wxStaticText& text) {
    atk_object_set_role(gtk_widget_get_accessible(dialog.GetHandle()), ATK_ROLE_DIALOG);
    atk_object_set_name(gtk_widget_get_accessible(field.GetHandle()), text.GetLabel().utf8_str());
    // The text is read out with the field, and not once more by itself.
    gtk_label_set_mnemonic_widget(GTK_LABEL(text.GetHandle()), field.GetHandle());
}
