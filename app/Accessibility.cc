#include "app/Accessibility.h"

#include <QAbstractButton>
#include <QAccessibleWidget>

namespace orvistelle::app {
namespace {

constexpr char kRoleProperty[] = "orvistelleAccessibleRole";
constexpr char kHiddenProperty[] = "orvistelleAccessibleHidden";

// A top-level window whose accessible children skip the views hidden from assistive technology.
class WindowInterface : public QAccessibleWidget {
 public:
  explicit WindowInterface(QWidget* window) : QAccessibleWidget(window, QAccessible::Window) {}

  int childCount() const override { return static_cast<int>(Children().size()); }
  QAccessibleInterface* child(int index) const override {
    const QList<QWidget*> children = Children();
    return index >= 0 && index < children.size() ? QAccessible::queryAccessibleInterface(children[index]) : nullptr;
  }
  int indexOfChild(const QAccessibleInterface* child) const override {
    return child == nullptr ? -1 : static_cast<int>(Children().indexOf(qobject_cast<QWidget*>(child->object())));
  }

 private:
  QList<QWidget*> Children() const {
    QList<QWidget*> children;
    for (QObject* object : widget()->children()) {
      auto* view = qobject_cast<QWidget*>(object);
      if (view != nullptr && !view->isWindow() && !view->property(kHiddenProperty).toBool()) children.append(view);
    }
    return children;
  }
};

// A button that reads as a link and is pressed like one.
class LinkInterface : public QAccessibleWidget {
 public:
  explicit LinkInterface(QAbstractButton* button) : QAccessibleWidget(button, QAccessible::Link) {}

  QString text(QAccessible::Text kind) const override {
    if (kind != QAccessible::Name || !widget()->accessibleName().isEmpty()) return QAccessibleWidget::text(kind);
    return static_cast<QAbstractButton*>(widget())->text();
  }
  QStringList actionNames() const override { return QAccessibleWidget::actionNames() << pressAction(); }
  void doAction(const QString& name) override {
    if (name == pressAction()) {
      static_cast<QAbstractButton*>(widget())->click();
    } else {
      QAccessibleWidget::doAction(name);
    }
  }
};

QAccessibleInterface* InterfaceFor(const QString& className, QObject* object) {
  auto* view = qobject_cast<QWidget*>(object);
  if (view == nullptr) return nullptr;
  if (view->isWindow() && className == QLatin1String("QWidget")) return new WindowInterface(view);
  const QVariant role = view->property(kRoleProperty);
  if (!role.isValid()) return nullptr;
  auto* button = qobject_cast<QAbstractButton*>(view);
  if (button != nullptr && role.toInt() == QAccessible::Link) return new LinkInterface(button);
  return new QAccessibleWidget(view, static_cast<QAccessible::Role>(role.toInt()));
}

}  // namespace

void InstallAccessibleRoles() { QAccessible::installFactory(InterfaceFor); }

void SetAccessibleRole(QWidget* view, QAccessible::Role role) { view->setProperty(kRoleProperty, int{role}); }

void HideFromAssistiveTechnology(QWidget* view) { view->setProperty(kHiddenProperty, true); }

}  // namespace orvistelle::app
