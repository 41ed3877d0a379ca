#pragma once

#include <QColor>
#include <QString>
#include <QWidget>

class QTimer;

/// A self-drawn on/off switch: a capsule with a round slider that stands right when it is on.
class SwitchButton : public QWidget
{
    Q_OBJECT
public:
    explicit SwitchButton(QWidget *parent = nullptr);
    ~SwitchButton() override;

    bool isChecked() const { return m_checked; }
    /// What a click does.
    void flip();

signals:
    /// The user flipped the switch; \a checked is its new state. setChecked() does not emit this.
    void statusChanged(bool checked);

private slots:
    void updateValue();

public slots:
    void setSpace(int space);
    void setRadius(int radius);
    /// Sets the state silently, and puts the slider in its place even when the state is the same.
    void setChecked(bool checked);
    void setShowText(bool show);
    void setShowCircle(bool show);
    /// Whether the slider slides or jumps.
    void setAnimation(bool ok);
    void setBgColorOn(QColor color);
    void setBgColorOff(QColor color);
    void setSliderColorOn(QColor color);
    void setSliderColorOff(QColor color);
    void setTextColor(QColor color);
    void setTextOn(QString text);
    void setTextOff(QString text);

protected:
    void mousePressEvent(QMouseEvent *event) override;
    /// The space bar flips the switch, as a click does.
    void keyPressEvent(QKeyEvent *event) override;
    void paintEvent(QPaintEvent *event) override;

private:
    template <typename Value>
    void change(Value &member, const Value &value);
    void moveSlider();
    void paintTrack(QPainter &painter);
    void paintText(QPainter &painter);
    void paintSlider(QPainter &painter);

    int m_space = 4; ///< pixels between the track's edge and the slider
    int m_radius = 2;
    bool m_checked = false;
    bool m_showText = false;
    bool m_showCircle = false;
    bool m_animation = true;
    QColor m_bgColorOn{124, 194, 25};
    QColor m_bgColorOff{111, 122, 126};
    QColor m_sliderColorOn{255, 255, 255};
    QColor m_sliderColorOff{255, 255, 255};
    QColor m_textColor{255, 255, 255};
    QString m_textOn;
    QString m_textOff;
    QTimer *m_timer;
    int m_step = 0;   ///< pixels that the slider moves at each tick
    int m_startX = 0; ///< where the slider is
    int m_endX = 0;   ///< where it is going
};
