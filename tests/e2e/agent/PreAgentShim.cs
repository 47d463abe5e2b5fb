// The trace functions that instrumented methods reach through the synthetic
// shim. Each call becomes one text line appended to the file named by
// TARN_AGENT_RECORD; without it nothing is recorded. A line reaches the file
// with the first call made 20 ms or more after the last write, and every line
// does when the process ends: a write per call made the web service with every
// method traced six times slower. Nothing here may throw
// into the caller (but catchTrace when TARN_AGENT_THROW_IN_CATCH is set, to
// prove that such an exception never replaces the program's own), and a call
// that arrives while this thread is already in the agent (a value's ToString
// that is itself instrumented) is not traced.
//
// The `this` that loadTrace gets may be an object whose constructor has not
// run yet (a constructor hands it over on entry): it is recorded by its type
// alone, and none of its members is called.
using System;
using System.Globalization;
using System.IO;
using System.Text;

namespace com.tarn.harrowlite.fieldmark.dotnet
{
    public static class PreAgentShim
    {
        // What initTrace answers when TARN_AGENT_TRACE_VALUE does not say:
        // trace this call, with its parameters.
        private const int ParametersWanted = 2;

        private static readonly object gate = new object();
        private static readonly string recordPath = ReadVariable("TARN_AGENT_RECORD");
        private static readonly int traceValue = ReadTraceValue();
        private static readonly bool throwInCatch = ReadVariable("TARN_AGENT_THROW_IN_CATCH") != null;
        private const long FlushMilliseconds = 20;

        private static StreamWriter writer;
        private static long lastFlush;

        [ThreadStatic] private static bool busy;

        public static int initTrace(int methodId)
        {
            return Enter("initTrace ", methodId) ? traceValue : 0;
        }

        public static int corInitTrace(int methodId)
        {
            return Enter("corInitTrace ", methodId) ? traceValue : 0;
        }

        public static void loadTrace()
        {
            Enter("loadTrace");
        }

        public static void loadTrace(object self)
        {
            Record("loadTrace this=", false, 0, self, true, true);
        }

        public static void pushTrace(int position, object value)
        {
            Record("pushTrace ", true, position, value, true, false);
        }

        public static void startTrace()
        {
            Enter("startTrace");
        }

        public static void finishValueTypeTrace(object result)
        {
            Enter("finishValueTypeTrace result=", result);
        }

        public static void finishTrace()
        {
            Enter("finishTrace");
        }

        public static void finishTrace(object result)
        {
            Enter("finishTrace result=", result);
        }

        public static void catchTrace(object exception)
        {
            Enter("catchTrace ", exception);
            if (throwInCatch)
                throw new InvalidOperationException("thrown by the agent in catchTrace");
        }



        private static bool Enter(string line)
        {
            return Record(line, false, 0, null, false, false);
        }

        private static bool Enter(string head, object value)
        {
            return Record(head, false, 0, value, true, false);
        }

        private static bool Enter(string head, int number)
        {
            return Record(head, true, number, null, false, false);
        }

        // Appends the line: head, the number if hasNumber (followed by a space
        // when a value follows), and value's text if withValue. False if the
        // call came from within the agent on this thread. With typeOnly the value
        // is given by its type alone (GetType is no virtual call: safe on an
        // object not yet built). Nothing is built and
        // no library method is called before that test: with the core library
        // traced, those calls come back here.
        private static bool Record(string head, bool hasNumber, int number, object value, bool withValue,
            bool typeOnly)
        {
            if (busy)
                return false;
            busy = true;
            try
            {
                if (recordPath != null)
                {
                    string line = head;
                    if (hasNumber)
                        line += number.ToString(CultureInfo.InvariantCulture) + (withValue ? " " : "");
                    if (withValue)
                        line += typeOnly && value != null ? value.GetType().FullName : Describe(value);
                    Append(line);
                }
            }
            catch (Exception)
            {
                // A record that cannot be written is lost; the caller goes on.
            }
            finally
            {
                busy = false;
            }
            return true;
        }

        private static void Append(string line)
        {
            lock (gate)
            {
                if (writer == null)
                {
                    var stream = new FileStream(recordPath, FileMode.Append, FileAccess.Write,
                        FileShare.ReadWrite | FileShare.Delete, 1 << 16);
                    writer = new StreamWriter(stream, new UTF8Encoding(false));
                    AppDomain.CurrentDomain.ProcessExit += (sender, args) => FlushForGood();
                    AppDomain.CurrentDomain.UnhandledException += (sender, args) => FlushForGood();
                }
                writer.Write(line);
                writer.Write('\n');
                long now = Environment.TickCount64;
                if (writer.AutoFlush || now - lastFlush < FlushMilliseconds)
                    return;
                writer.Flush();
                lastFlush = now;
            }
        }

        // At the end every line is written, and so is each one that comes later.
        private static void FlushForGood()
        {
            bool wasBusy = busy;
            busy = true;
            try
            {
                lock (gate)
                    writer.AutoFlush = true;
            }
            catch (Exception)
            {
                // What is left in the buffer is lost.
            }
            finally
            {
                busy = wasBusy;
            }
        }

        // "null", "<element type>[<length>]" for an array, "<type>:<message>"
        // for an exception, else "<type>:<text>" in the invariant culture.
        private static string Describe(object value)
        {
            if (value == null)
                return "null";
            Type type = value.GetType();
            if (value is Array array)
                return type.GetElementType().FullName + "[" + array.Length.ToString(CultureInfo.InvariantCulture) + "]";
            string text;
            try
            {
                text = value is Exception exception ? exception.Message
                    : value is IFormattable formattable ? formattable.ToString(null, CultureInfo.InvariantCulture)
                    : value.ToString();
            }
            catch (Exception failure)
            {
                text = "<" + failure.GetType().FullName + " in ToString>";
            }
            return type.FullName + ":" + OneLine(text);
        }

        private static string OneLine(string text)
        {
            if (text == null)
                return "";
            return text.Replace("\\", "\\\\").Replace("\r", "\\r").Replace("\n", "\\n");
        }

        private static string ReadVariable(string name)
        {
            try
            {
                string value = Environment.GetEnvironmentVariable(name);
                return string.IsNullOrEmpty(value) ? null : value;
            }
            catch (Exception)
            {
                return null;
            }
        }

        private static int ReadTraceValue()
        {
            string text = ReadVariable("TARN_AGENT_TRACE_VALUE");
            return text != null && int.TryParse(text, NumberStyles.Integer, CultureInfo.InvariantCulture, out int value)
                ? value
                : ParametersWanted;
        }
    }
}
