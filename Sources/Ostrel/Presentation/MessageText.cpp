#include "MessageText.h"

#include <QFontMetricsF>
#include <QTextBlock>
#include <QTextCursor>
#include <QTextDocument>
#include <QTextDocumentFragment>
#include <QTextTable>
#include <QUrl>
#include <algorithm>
#include <cmath>
#include <utility>
#include <vector>

#include "App/FilePaths.h"
#include "Words.h"

namespace ostrel {

namespace {

constexpr qreal kParagraphSpace = 6;  // points, above a paragraph that is not the first
constexpr qreal kCellPadding = 4;
constexpr qreal kLineHeight = 118;  // hundredths of the font's own

// The pieces of a document that have one format each.
struct Piece {
  int begin = 0;
  int end = 0;
  QTextCharFormat format;
};

std::vector<Piece> pieces(const QTextDocument& document) {
  std::vector<Piece> all;
  for (QTextBlock block = document.begin(); block.isValid(); block = block.next()) {
    for (auto each = block.begin(); !each.atEnd(); ++each) {
      const QTextFragment fragment = each.fragment();
      all.push_back({fragment.position(), fragment.position() + fragment.length(), fragment.charFormat()});
    }
  }
  return all;
}

QTextCursor range(QTextDocument& document, int begin, int end) {
  QTextCursor cursor(&document);
  cursor.setPosition(begin);
  cursor.setPosition(end, QTextCursor::KeepAnchor);
  return cursor;
}

void replaceImages(QTextDocument& document) {
  const std::vector<Piece> all = pieces(document);
  for (auto each = all.rbegin(); each != all.rend(); ++each) {
    if (!each->format.isImageFormat()) continue;
    const QTextImageFormat image = each->format.toImageFormat();
    QString words = image.property(QTextFormat::ImageAltText).toString();
    if (words.isEmpty()) words = image.name();
    QTextCharFormat plain;
    plain.setAnchor(true);
    plain.setAnchorHref(image.name());
    // A picture stands for as many characters as it was written once for.
    range(document, each->begin, each->end).insertText(words, plain);
  }
}

void linkPaths(QTextDocument& document, const QColor& color) {
  for (QTextBlock block = document.begin(); block.isValid(); block = block.next()) {
    const QByteArray text = block.text().toUtf8();
    for (const FilePath& path : filePaths({text.constData(), static_cast<std::size_t>(text.size())})) {
      const auto at = [&](std::size_t bytes) {
        return block.position() +
               static_cast<int>(QString::fromUtf8(text.constData(), static_cast<qsizetype>(bytes)).size());
      };
      QTextCursor cursor = range(document, at(path.begin), at(path.begin + path.length));
      if (cursor.charFormat().isAnchor()) continue;
      QTextCharFormat link;
      link.setAnchor(true);
      link.setAnchorHref(QString::fromUtf16(MessageText::kPathScheme) + words::of(path.path));
      link.setForeground(color);
      cursor.mergeCharFormat(link);
    }
  }
}

}  // namespace

MessageText::MessageText(QObject* parent) : QObject(parent) {
  connect(this, &MessageText::changed, this, &MessageText::fill);
}

void MessageText::componentComplete() {
  complete_ = true;
  fill();
}

void MessageText::setMarkdown(QTextDocument& document, const QString& text) {
  const auto features =
      QTextDocument::MarkdownFeatures(QTextDocument::MarkdownDialectGitHub) | QTextDocument::MarkdownNoHTML;
  if (!text.contains(QStringLiteral("!["))) {
    document.setMarkdown(text, features);
    return;
  }
  // Pictures go before the text meets a view, which would load them.
  QTextDocument apart;
  apart.setMarkdown(text, features);
  replaceImages(apart);
  document.clear();
  QTextCursor(&document).insertFragment(QTextDocumentFragment(&apart));
}

void MessageText::fill() {
  if (!complete_ || !document_) return;
  QTextDocument& document = *document_->textDocument();
  document.setUndoRedoEnabled(false);
  if (markdown_) {
    setMarkdown(document, text_);
  } else {
    document.setPlainText(text_);
    const QFontMetricsF metrics(document.defaultFont());
    naturalWidth_ = 0;
    for (const QStringView line : QStringView(text_).split(u'\n'))
      naturalWidth_ = std::max(naturalWidth_, std::ceil(metrics.horizontalAdvance(line.toString())));
  }
  dress(document);
  Q_EMIT filled();
}

void MessageText::dress(QTextDocument& document) const {
  QTextCursor all(&document);
  all.beginEditBlock();
  for (QTextBlock block = document.begin(); block.isValid(); block = block.next()) {
    QTextBlockFormat space;
    if (!dense_) space.setLineHeight(kLineHeight, QTextBlockFormat::ProportionalHeight);
    if (markdown_) {
      space.setTopMargin(block.blockNumber() == 0 || QTextCursor(block).currentTable() ? 0 : kParagraphSpace);
      space.setBottomMargin(0);
    }
    QTextCursor(block).mergeBlockFormat(space);
  }
  for (QTextFrame* frame : document.rootFrame()->childFrames()) {
    auto* const table = qobject_cast<QTextTable*>(frame);
    if (!table) continue;
    QTextTableFormat format = table->format();
    format.setBorder(1);
    format.setBorderCollapse(true);
    format.setBorderBrush(codeColor_);
    format.setCellPadding(kCellPadding);
    format.setTopMargin(kParagraphSpace);
    table->setFormat(format);
  }
  for (const Piece& piece : pieces(document)) {
    QTextCharFormat format;
    if (piece.format.isAnchor()) {
      format.setForeground(linkColor_);
    } else if (markdown_ && piece.format.fontFixedPitch()) {
      format.setBackground(codeColor_);
    } else {
      continue;
    }
    range(document, piece.begin, piece.end).mergeCharFormat(format);
  }
  if (links_) linkPaths(document, linkColor_);
  if (!find_.isEmpty()) {
    QTextCharFormat found;
    found.setBackground(findColor_);
    for (QTextCursor at = document.find(find_); !at.isNull(); at = document.find(find_, at))
      at.mergeCharFormat(found);
  }
  all.endEditBlock();
}

}  // namespace ostrel
