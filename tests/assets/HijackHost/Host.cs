namespace System.Runtime.Serialization.Formatters.Binary
{
    internal sealed class ObjectProgress
    {
        private static int opRecordIdCount;

        internal int Count(int step) => step + opRecordIdCount;
    }
}

namespace Hijacked
{
    public class Library
    {
        private int total;

        public static void Touch() { }

        public static string Join(string left, int right) => left + right;

        public int Add(int value)
        {
            total += value;
            return total;
        }

        public static int Guarded(int value)
        {
            try
            {
                return 100 / value;
            }
            catch (System.DivideByZeroException)
            {
                return -1;
            }
        }
    }
}
