<?xml version="1.0" encoding="utf-8"?>
<!DOCTYPE TS>
<TS version="2.1" language="zh_CN" sourcelanguage="en">
<context>
    <name>AccessibleWidgets</name>
    <message>
        <source>Levels</source>
        <translation>电平</translation>
    </message>
    <message>
        <source>Spectrum</source>
        <translation>频谱</translation>
    </message>
</context>
<context>
    <name>HeightScale</name>
    <message>
        <source>fit %1</source>
        <comment>height</comment>
        <translation>随乐 %1</translation>
    </message>
    <message>
        <source>sent %1</source>
        <comment>height</comment>
        <translation>原始 %1</translation>
    </message>
    <message>
        <source>set %1</source>
        <comment>height</comment>
        <translation>手动 %1</translation>
    </message>
    <message>
        <source>fits music: %1</source>
        <comment>height</comment>
        <translation>随音乐：%1</translation>
    </message>
    <message>
        <source>as sent: %1</source>
        <comment>height</comment>
        <translation>原始值：%1</translation>
    </message>
    <message>
        <source>by hand: %1</source>
        <comment>height</comment>
        <translation>手动：%1</translation>
    </message>
</context>
<context>
    <name>Levels</name>
    <message>
        <source>RMS</source>
        <translation>RMS</translation>
    </message>
    <message>
        <source>peak</source>
        <translation>峰值</translation>
    </message>
    <message>
        <source>dynamic</source>
        <translation>动态</translation>
    </message>
</context>
<context>
    <name>Main</name>
    <message>
        <source>standard output</source>
        <translation>标准输出</translation>
    </message>
    <message>
        <source>%1; see --help</source>
        <translation>%1；参见 --help</translation>
    </message>
    <message>
        <source>no message came: %1</source>
        <translation>没有收到消息：%1</translation>
    </message>
</context>
<context>
    <name>MonitorModel</name>
    <message>
        <source>waiting for the service</source>
        <translation>正在等待服务</translation>
    </message>
    <message>
        <source>waiting for the service: %1</source>
        <translation>正在等待服务：%1</translation>
    </message>
    <message>
        <source>what answers is of another type</source>
        <translation>应答的对象类型不同</translation>
    </message>
    <message>
        <source>connected, no message yet</source>
        <translation>已连接，尚无消息</translation>
    </message>
    <message>
        <source>no message for %1 s</source>
        <translation>已有 %1 秒没有消息</translation>
    </message>
    <message>
        <source>no sound server</source>
        <translation>没有声音服务器</translation>
    </message>
    <message>
        <source>no output device</source>
        <translation>没有输出设备</translation>
    </message>
    <message>
        <source>nothing is playing on %1</source>
        <translation>%1 上没有播放任何内容</translation>
    </message>
    <message>
        <source>a program plays on %1, but only silence arrives</source>
        <translation>有程序在 %1 上播放，但收到的只有静音</translation>
    </message>
    <message>
        <source>nothing is playing</source>
        <translation>没有播放任何内容</translation>
    </message>
    <message>
        <source>%1 a second, newest %2 ms old</source>
        <translation>每秒 %1 条，最新一条在 %2 毫秒前</translation>
    </message>
    <message>
        <source>bad messages: %1</source>
        <translation>错误消息：%1</translation>
    </message>
    <message>
        <source>of another type: %1</source>
        <translation>类型不同：%1</translation>
    </message>
    <message>
        <source>nothing is playing on the service&apos;s sound server, which is another one than here</source>
        <translation>服务所用的声音服务器与这里的不同，那里没有播放任何内容</translation>
    </message>
</context>
<context>
    <name>MonitorOptions</name>
    <message>
        <source>unexpected argument: %1</source>
        <translation>多余的参数：%1</translation>
    </message>
    <message>
        <source>--record needs a file name</source>
        <translation>--record 需要文件名</translation>
    </message>
    <message>
        <source>--png needs a file name</source>
        <translation>--png 需要文件名</translation>
    </message>
    <message>
        <source>--json is the same as --record -: not together with another --record</source>
        <translation>--json 等同于 --record -，不能与另一个 --record 同时使用</translation>
    </message>
    <message>
        <source>--json shows nothing: not together with --text or --png</source>
        <translation>--json 不显示任何内容，不能与 --text 或 --png 同时使用</translation>
    </message>
    <message>
        <source>--png is a picture of the window: not together with --text</source>
        <translation>--png 是窗口的图片，不能与 --text 同时使用</translation>
    </message>
    <message>
        <source>--seconds needs a number above 0</source>
        <translation>--seconds 需要大于 0 的数字</translation>
    </message>
    <message>
        <source>draw in the terminal; plain lines where output is none</source>
        <translation>在终端中绘制；输出不是终端时逐行显示</translation>
    </message>
    <message>
        <source>end after N seconds</source>
        <translation>N 秒后结束</translation>
    </message>
    <message>
        <source>write every message to standard output, one JSON object a line, and nothing else there; ends when nobody reads it any more</source>
        <translation>把每条消息写到标准输出，每行一个 JSON 对象，除此之外不输出任何内容；无人读取时结束</translation>
    </message>
    <message>
        <source>write every message to FILE, one JSON object a line; - is --json</source>
        <translation>把每条消息写入 FILE，每行一个 JSON 对象；- 即 --json</translation>
    </message>
    <message>
        <source>save one picture and end: after --seconds, else two seconds after the first message, for which it waits ten seconds; needs no display</source>
        <translation>保存一张图片后结束：在 --seconds 之后，否则在收到第一条消息两秒后，最多等待该消息十秒；不需要显示器</translation>
    </message>
    <message>
        <source>at the end, print the rate, gaps and bad messages</source>
        <translation>结束时显示频率、间隔和错误消息</translation>
    </message>
    <message>
        <source>print this</source>
        <translation>显示本帮助</translation>
    </message>
    <message>
        <source>print the version</source>
        <translation>显示版本</translation>
    </message>
    <message>
        <source>usage: tonewell-monitor [options]</source>
        <translation>用法：tonewell-monitor [选项]</translation>
    </message>
    <message>
        <source>Shows the live sound spectrum that TonewellDetection publishes: in a window where there is a display, else in the terminal. Waits for the service if it is not there, says why, and comes back when the service does.</source>
        <translation>实时显示 TonewellDetection 发布的声音频谱：有显示器时在窗口中，否则在终端中。服务不在时会等待并说明原因，服务恢复后自动恢复。</translation>
    </message>
    <message>
        <source>Keys: q and Esc end it, + and - make the bars higher or lower, 0 changes between a height that fits the music and the message&apos;s own; in the window also F11 full screen, s a picture, F1 all keys.</source>
        <translation>按键：q 和 Esc 结束，+ 和 - 使频谱条变高或变低，0 在随音乐调整的高度与消息的原始高度之间切换；在窗口中还有 F11 全屏、s 保存图片、F1 列出所有按键。</translation>
    </message>
    <message>
        <source>Exit codes: 0 messages had come, 2 wrong options or no message had come, 3 a file or standard output could not be written.</source>
        <translation>退出码：0 收到过消息，2 选项错误或没有收到消息，3 无法写入文件或标准输出。</translation>
    </message>
</context>
<context>
    <name>MonitorWindow</name>
    <message>
        <source>Start the service</source>
        <translation>启动服务</translation>
    </message>
    <message>
        <source>Sound Spectrum Monitor</source>
        <translation>声音频谱监视器</translation>
    </message>
    <message>
        <source>Higher bars</source>
        <translation>频谱条变高</translation>
    </message>
    <message>
        <source>Lower bars</source>
        <translation>频谱条变低</translation>
    </message>
    <message>
        <source>Height: fit the music, or as sent</source>
        <translation>高度：随音乐调整或原始值</translation>
    </message>
    <message>
        <source>Full screen</source>
        <translation>全屏</translation>
    </message>
    <message>
        <source>Save a picture</source>
        <translation>保存图片</translation>
    </message>
    <message>
        <source>Keys</source>
        <translation>按键</translation>
    </message>
    <message>
        <source>Leave full screen, or quit</source>
        <translation>退出全屏或结束</translation>
    </message>
    <message>
        <source>Quit</source>
        <translation>结束</translation>
    </message>
    <message>
        <source>Bars: the left channel to the left of 0 Hz, the right one to the right. Meters: decibels of full scale; the number is the mark&apos;s, 1.000 is full scale.</source>
        <translation>频谱条：0 Hz 左侧为左声道，右侧为右声道。电平表：以满刻度为准的分贝；数字对应标记，1.000 为满刻度。</translation>
    </message>
    <message>
        <source>saved: %1</source>
        <translation>已保存：%1</translation>
    </message>
    <message>
        <source>%1 or %2</source>
        <comment>keys</comment>
        <translation>%1 或 %2</translation>
    </message>
</context>
<context>
    <name>ServiceStarter</name>
    <message>
        <source>%1 cannot be started</source>
        <translation>无法启动 %1</translation>
    </message>
</context>
<context>
    <name>SpectrumPlot</name>
    <message>
        <source>highest on the left at %1 Hz: %2, on the right at %3 Hz: %4; %5</source>
        <translation>左声道最高在 %1 Hz：%2，右声道最高在 %3 Hz：%4；%5</translation>
    </message>
    <message>
        <source>height %1</source>
        <translation>高度%1</translation>
    </message>
</context>
<context>
    <name>TopLabels</name>
    <message>
        <source>left channel</source>
        <translation>左声道</translation>
    </message>
    <message>
        <source>right channel</source>
        <translation>右声道</translation>
    </message>
    <message>
        <source>left</source>
        <translation>左</translation>
    </message>
    <message>
        <source>right</source>
        <translation>右</translation>
    </message>
    <message>
        <source>L</source>
        <comment>left channel</comment>
        <translation>左</translation>
    </message>
    <message>
        <source>R</source>
        <comment>right channel</comment>
        <translation>右</translation>
    </message>
</context>
<context>
    <name>WaitReason</name>
    <message>
        <source>it speaks %1, which programs of Qt %2 do not understand</source>
        <translation>它使用 %1，Qt %2 的程序无法理解</translation>
    </message>
    <message>
        <source>what answers at its socket publishes nothing named Tonewell</source>
        <translation>其套接字上的应答者没有发布名为 Tonewell 的对象</translation>
    </message>
    <message>
        <source>it runs, but user %1 holds its socket %2</source>
        <translation>它正在运行，但其套接字 %2 被用户 %1 占用</translation>
    </message>
    <message>
        <source>user %1 holds its socket %2</source>
        <translation>其套接字 %2 被用户 %1 占用</translation>
    </message>
    <message>
        <source>what holds its socket says nothing: another program, or it hangs</source>
        <translation>占用其套接字的程序没有应答：是别的程序，或它已停止响应</translation>
    </message>
    <message>
        <source>it runs with another TMPDIR: %1 there, %2 here</source>
        <translation>它使用不同的 TMPDIR 运行：那里是 %1，这里是 %2</translation>
    </message>
    <message>
        <source>it runs, but its socket %1 does not answer</source>
        <translation>它正在运行，但其套接字 %1 没有应答</translation>
    </message>
    <message>
        <source>it is not installed</source>
        <translation>它没有安装</translation>
    </message>
    <message>
        <source>it is not running; this starts it: %1</source>
        <translation>它没有运行；用此命令启动：%1</translation>
    </message>
    <message>
        <source>it answers, but has sent nothing yet</source>
        <translation>它有应答，但尚未发送任何内容</translation>
    </message>
    <message>
        <source>it takes no more consumers; as soon as one of them ends, there is room</source>
        <translation>连接它的程序已达上限；其中一个结束后即可连接</translation>
    </message>
</context>
</TS>
