// What screen readers see of the status window: roles that plain widgets cannot state, and views that only
// decorate or repeat what a neighbour already says.
#pragma once

#include <QAccessible>
#include <QWidget>

namespace orvistelle::app {

// Once per process, before the first accessible interface is asked for.
void InstallAccessibleRoles();

// Graphic for a view that draws an image; Link for a button that opens a page (it can then be pressed too).
void SetAccessibleRole(QWidget* view, QAccessible::Role role);

// Left out of its window's accessible children, as a separator or the parts of a row that another view reads out.
void HideFromAssistiveTechnology(QWidget* view);

}  // namespace orvistelle::app
