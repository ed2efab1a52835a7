// Fills the document of a text view: Markdown or plain text, with links on web addresses and file paths, and
// with the words marked that somebody looks for. Main thread only.
//
// Text comes from agents, so nothing in it is fetched or run: HTML stays text, and of a picture only its
// words are shown.
#pragma once

#include <QColor>
#include <QObject>
#include <QQmlParserStatus>
#include <QQuickTextDocument>
#include <QtQmlIntegration>

namespace ostrel {

class MessageText : public QObject, public QQmlParserStatus {
  Q_OBJECT
  QML_ELEMENT
  Q_INTERFACES(QQmlParserStatus)
  Q_PROPERTY(QQuickTextDocument* document MEMBER document_ NOTIFY changed REQUIRED)
  Q_PROPERTY(QString text MEMBER text_ NOTIFY changed REQUIRED)
  Q_PROPERTY(bool markdown MEMBER markdown_ NOTIFY changed)
  Q_PROPERTY(bool links MEMBER links_ NOTIFY changed)
  Q_PROPERTY(
      bool dense MEMBER dense_ NOTIFY changed)  // lines that may be drawn with, one right below the other
  Q_PROPERTY(QString find MEMBER find_ NOTIFY changed)
  Q_PROPERTY(QColor linkColor MEMBER linkColor_ NOTIFY changed)
  Q_PROPERTY(QColor codeColor MEMBER codeColor_ NOTIFY changed)  // behind code in a line
  Q_PROPERTY(QColor findColor MEMBER findColor_ NOTIFY changed)  // behind found words
  // The longest line, in points, before any wrapping; of plain text.
  Q_PROPERTY(qreal naturalWidth READ naturalWidth NOTIFY filled)

 public:
  // In front of the path, in links that this makes.
  static constexpr char16_t kPathScheme[] = u"path:";

  explicit MessageText(QObject* parent = nullptr);
  void classBegin() override {}
  void componentComplete() override;

  qreal naturalWidth() const { return naturalWidth_; }

  // What `text` becomes, for a view or a test.
  static void setMarkdown(QTextDocument& document, const QString& text);

 Q_SIGNALS:
  void changed();
  void filled();

 private:
  void fill();
  void dress(QTextDocument& document) const;

  QQuickTextDocument* document_ = nullptr;
  QString text_;
  QString find_;
  QColor linkColor_, codeColor_, findColor_;
  bool markdown_ = false;
  bool links_ = true;
  bool dense_ = false;
  bool complete_ = false;
  qreal naturalWidth_ = 0;
};

}  // namespace ostrel
